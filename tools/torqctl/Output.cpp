#include "Output.h"

#include <android/log.h>
#include <json/writer.h>

#include <memory>
#include <sstream>
#include <type_traits>
#include <utility>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

std::mutex gLogSinkMutex;
// Never destroyed: binder threads may log until the very end.
auto* const gLogSink = new std::function<void(const LogLine&)>();

void deliverLog(int priority, const char* tag, const char* message) {
    const LogLine line{priority, tag != nullptr ? tag : "", message != nullptr ? message : ""};
    std::lock_guard<std::mutex> lock(gLogSinkMutex);
    if (*gLogSink) (*gLogSink)(line);
}

// Length of the well-formed UTF-8 sequence at text[i], or 0 when the byte there starts none
// (overlong forms, surrogates and code points above U+10FFFF included).
size_t utf8SequenceAt(const std::string& text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) return 1;
    // 0xc0 and 0xc1 start only overlong forms, a lead past 0xf4 only code points past U+10FFFF.
    if (lead < 0xc2 || lead > 0xf4) return 0;
    const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (i + length > text.size()) return 0;
    uint32_t code = lead & (0x7f >> length);
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80) return 0;
        code = code << 6 | (byte(i + k) & 0x3f);
    }
    static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    return code < kLeast[length] || code > 0x10ffff || surrogate ? 0 : length;
}

// `text` with every byte outside a well-formed sequence written as `escape` and two hex digits.
std::string escapeInvalidUtf8(const std::string& text, const char* escape) {
    std::string out;
    out.reserve(text.size());
    static const char kHex[] = "0123456789abcdef";
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8SequenceAt(text, i);
        if (length > 0) {
            out.append(text, i, length);
            i += length;
        } else {
            const auto b = static_cast<unsigned char>(text[i++]);
            out += escape;
            out += kHex[b >> 4];
            out += kHex[b & 0xf];
        }
    }
    return out;
}

void add(Json::Value& object, JsonMembers members) {
    for (const auto& [name, value] : members) object[name] = value;
}

// The journal's values as JSON: an absent optional is null, a list an array.
template <typename T>
Json::Value toJson(const T& value) {
    if constexpr (std::is_same_v<T, torq_sim::TorqRequestData>) {
        return jsonObject({{"id", torq_sim::hexId(value.id)},
                           {"subId", value.subId},
                           {"value", toJson(value.value)},
                           {"path", toJson(value.path)},
                           {"extra", toJson(value.extra)}});
    } else if constexpr (std::is_constructible_v<Json::Value, const T&>) {
        return Json::Value(value);
    } else if constexpr (std::is_same_v<T, std::optional<typename T::value_type>>) {
        return value ? toJson(*value) : Json::Value();
    } else {
        Json::Value out(Json::arrayValue);
        for (const auto& item : value) out.append(toJson(item));
        return out;
    }
}

// The arguments of one received call, as fields of `item`: those of its method only.
void callArguments(const torq_sim::ReceivedCall& c, Json::Value& item) {
    const torq_sim::TorqRequestParcel& p = c.parcel;
    if (c.method == "request" || c.method == "stateRequest" || c.method == "listeningRegister" ||
        c.method == "notifyEvent") {
        add(item, {{"kind", p.kind},
                   {"data", toJson(p.data)},
                   {"flag", p.flag},
                   {"option", p.option},
                   {"tag", p.tag},
                   {"duration", static_cast<Json::Int64>(p.duration)},
                   {"param", p.param},
                   {"pkg", toJson(p.pkg)},
                   {"identity", toJson(p.identity)},
                   {"extras", toJson(p.extras)},
                   {"numbers", toJson(p.numbers)},
                   {"callback", c.hasCallback}});
    } else if (c.method == "release" || c.method == "listeningUnregister" ||
               c.method == "thermalListeningUnregister") {
        add(item, {{"handle", c.handle}});
    } else if (c.method == "propertyGet") {
        add(item, {{"name", c.name}});
    } else if (c.method == "propertySet") {
        add(item, {{"name", c.name}, {"value", c.value}});
    } else if (c.method == "thermalListeningRegister") {
        add(item, {{"ids", toJson(c.ids)}, {"callback", c.hasCallback}});
    } else if (c.method == "setRelatedSysInfo") {
        add(item, {{"type", c.first}, {"value", static_cast<Json::Int64>(c.second)}});
    } else if (c.method == "ruleCtl") {
        add(item, {{"rule", c.first}, {"status", c.status}, {"data", toJson(c.entries)}});
    }
}

Json::Value answerJson(const torq_sim::SentAnswer& a) {
    Json::Value out = jsonObject({{"exception", a.exception},
                                  {"serviceSpecificError", a.serviceSpecificError},
                                  {"transactionError", a.transactionError},
                                  {"message", a.message},
                                  {"result", toJson(a.result)}});
    if (a.records) out["records"] = toJson(*a.records);
    if (a.text) out["text"] = *a.text;
    return out;
}

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gLogSinkMutex);
        *gLogSink = std::move(sink);
    }
#ifdef __ANDROID__
    // The device's liblog (API 30 and later) passes an __android_log_message.
    __android_log_set_logger([](const struct __android_log_message* message) {
        deliverLog(message->priority, message->tag, message->message);
        // Still send it to logcat, as the platform's logger would.
        __android_log_logd_logger(message);
    });
#else
    // Debian's liblog on a host: the pre-release API, with __android_logger_data.
    __android_log_set_logger([](const struct __android_logger_data* data, const char* message) {
        deliverLog(data->priority, data->tag, message);
    });
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
#endif
}

Json::Value jsonObject(JsonMembers members) {
    Json::Value out(Json::objectValue);
    add(out, members);
    return out;
}

std::string validUtf8(const std::string& text) {
    return escapeInvalidUtf8(text, "\\x");
}

std::string toJsonLine(const Json::Value& value) {
    // A StreamWriter keeps state while it writes: one per line keeps this thread-safe, at the
    // cost of an allocation next to a line's worth of formatting.
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;  // text as it is, not as \u escapes
    const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    std::ostringstream out;
    writer->write(value, &out);
    // Bytes beyond ASCII come only from strings, which jsoncpp copies as they are: each one
    // outside a well-formed sequence becomes what the string \xNN would be written as.
    return escapeInvalidUtf8(out.str(), "\\\\x");
}

Json::Value halJson(const std::vector<torq_sim::JournalEntry>& entries) {
    Json::Value list(Json::arrayValue);
    for (const auto& e : entries) {
        Json::Value item = jsonObject({{"seq", static_cast<Json::UInt64>(e.seq)}});
        switch (e.type) {
            case torq_sim::JournalEntry::Type::kCall:
                add(item,
                    {{"type", "call"}, {"method", e.call.method}, {"answer", answerJson(e.answer)}});
                callArguments(e.call, item);
                break;
            case torq_sim::JournalEntry::Type::kCallback:
                add(item, {{"type", "callback"},
                           {"method", e.method},
                           {"to", e.target},
                           {"records", toJson(e.records)}});
                break;
            case torq_sim::JournalEntry::Type::kNote:
                add(item, {{"type", "note"}, {"text", e.args}});
                break;
        }
        list.append(std::move(item));
    }
    return list;
}

Json::Value recordsJson(const std::vector<std::pair<std::string, std::string>>& records,
                        const char* key) {
    Json::Value list(Json::arrayValue);
    for (const auto& [k, v] : records) list.append(jsonObject({{key, k}, {"value", v}}));
    return list;
}

std::string describeCallback(const CallbackEvent& event) {
    std::string text = "callback to " + event.to;
    if (event.handle > 0) text += " #" + std::to_string(event.handle);
    text += ":";
    if (event.records.empty()) text += " (no records)";
    for (const auto& [key, value] : event.records)
        text += " " + key + "=" + torq_sim::quoted(value);
    return text;
}

void Output::write(const std::string& text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
        writeFailed_ = true;
}

bool Output::writeFailed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return writeFailed_ || ferror(stdout) != 0;
}

void Output::report(const Report& r) {
    Json::Value j = r.extra;
    add(j, {{"command", r.command},
            {"call", r.call},
            {"args", r.args},
            {"result", toJson(r.result)},
            {"ok", r.ok}});
    std::string text = r.call + "(" + r.args + ")" +
                       (r.result ? " = " + std::to_string(*r.result) : " done") +
                       (r.ok ? "" : "  [failed]");
    for (const std::string& d : r.details) text += "\n    " + d;
    if (r.hal) {
        j["hal"] = halJson(*r.hal);
        if (r.hal->empty()) text += "\n  HAL received: nothing";
        // In the order of JournalEntry::Type: a call, a callback, a note.
        static const char* const kPrefix[] = {"\n  HAL received: ", "\n  HAL sent:     ", "\n  "};
        for (const auto& e : *r.hal) text += kPrefix[static_cast<int>(e.type)] + e.toString();
    }
    message(text, j);
}

void Output::callback(const CallbackEvent& event) {
    message(describeCallback(event),
            jsonObject({{"event", "callback"},
                        {"to", event.to},
                        {"handle", event.handle > 0 ? Json::Value(event.handle) : Json::Value()},
                        {"records", recordsJson(event.records, event.byPath ? "path" : "id")}}));
}

void Output::log(const LogLine& line) {
    const int p = line.priority;
    const bool known = p >= ANDROID_LOG_VERBOSE && p <= ANDROID_LOG_FATAL;
    const std::string priority(1, known ? "VDIWEF"[p - ANDROID_LOG_VERBOSE] : '?');
    message("log: " + priority + "/" + line.tag + ": " + line.message,
            jsonObject({{"event", "log"},
                        {"priority", priority},
                        {"tag", line.tag},
                        {"message", line.message}}));
}

void Output::message(const std::string& text, const Json::Value& json) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) {
        write(text + "\n");
    } else if (json.isObject()) {
        write(toJsonLine(json) + "\n");
    }
}

void Output::raw(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    write(text);
}

void Output::error(const std::string& text, int exit) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Standard output first, so that the error follows what came before it.
    if (json_) write(toJsonLine(jsonObject({{"error", text}, {"exit", exit}})) + "\n");
    fflush(stdout);
    fprintf(stderr, "torqctl: %s\n", text.c_str());
    fflush(stderr);
}

}  // namespace torqctl
