#include "Output.h"

#include <json/writer.h>

#include <memory>
#include <sstream>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0 when the byte there starts none
// (overlong forms, surrogates and code points above U+10FFFF included).
size_t utf8SequenceAt(const std::string& text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char b0 = byte(i);
    if (b0 < 0x80) return 1;
    size_t length;
    unsigned char min1 = 0x80;  // the allowed range of the second byte
    unsigned char max1 = 0xbf;
    if (b0 >= 0xc2 && b0 <= 0xdf) {
        length = 2;
    } else if (b0 >= 0xe0 && b0 <= 0xef) {
        length = 3;
        if (b0 == 0xe0) min1 = 0xa0;  // overlong
        if (b0 == 0xed) max1 = 0x9f;  // surrogates
    } else if (b0 >= 0xf0 && b0 <= 0xf4) {
        length = 4;
        if (b0 == 0xf0) min1 = 0x90;  // overlong
        if (b0 == 0xf4) max1 = 0x8f;  // above U+10FFFF
    } else {
        return 0;
    }
    if (i + length > text.size()) return 0;
    if (byte(i + 1) < min1 || byte(i + 1) > max1) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80) return 0;
    }
    return length;
}

Json::Value withValidStrings(const Json::Value& value) {
    switch (value.type()) {
        case Json::stringValue:
            return Json::Value(validUtf8(value.asString()));
        case Json::arrayValue: {
            Json::Value out(Json::arrayValue);
            for (const Json::Value& item : value) out.append(withValidStrings(item));
            return out;
        }
        case Json::objectValue: {
            Json::Value out(Json::objectValue);
            for (const std::string& key : value.getMemberNames())
                out[validUtf8(key)] = withValidStrings(value[key]);
            return out;
        }
        default:
            return value;
    }
}

Json::Value optionalText(const std::optional<std::string>& text) {
    return text ? Json::Value(*text) : Json::Value();
}

Json::Value dataJson(const std::vector<torq_sim::TorqRequestData>& list) {
    Json::Value out(Json::arrayValue);
    for (const auto& d : list) {
        Json::Value item(Json::objectValue);
        item["id"] = torq_sim::hexId(d.id);
        item["subId"] = d.subId;
        item["value"] = optionalText(d.value);
        item["path"] = optionalText(d.path);
        item["extra"] = optionalText(d.extra);
        out.append(std::move(item));
    }
    return out;
}

Json::Value intsJson(const std::vector<int32_t>& values) {
    Json::Value out(Json::arrayValue);
    for (int32_t v : values) out.append(v);
    return out;
}

bool takesParcel(const std::string& method) {
    return method == "request" || method == "stateRequest" || method == "listeningRegister" ||
           method == "notifyEvent";
}

// The arguments of one received call, as fields of `item`: those of its method only.
void callArguments(const torq_sim::ReceivedCall& c, Json::Value& item) {
    if (takesParcel(c.method)) {
        const torq_sim::TorqRequestParcel& p = c.parcel;
        item["kind"] = p.kind;
        item["data"] = dataJson(p.data);
        item["flag"] = p.flag;
        item["option"] = p.option;
        item["tag"] = p.tag;
        item["duration"] = static_cast<Json::Int64>(p.duration);
        item["param"] = p.param;
        item["pkg"] = optionalText(p.pkg);
        item["identity"] = optionalText(p.identity);
        Json::Value extras;
        if (p.extras) {
            extras = Json::Value(Json::arrayValue);
            for (const auto& e : *p.extras) extras.append(optionalText(e));
        }
        item["extras"] = std::move(extras);
        item["numbers"] = p.numbers ? intsJson(*p.numbers) : Json::Value();
        item["callback"] = c.hasCallback;
    } else if (c.method == "release" || c.method == "listeningUnregister" ||
               c.method == "thermalListeningUnregister") {
        item["handle"] = c.handle;
    } else if (c.method == "propertyGet") {
        item["name"] = c.name;
    } else if (c.method == "propertySet") {
        item["name"] = c.name;
        item["value"] = c.value;
    } else if (c.method == "thermalListeningRegister") {
        item["ids"] = intsJson(c.ids);
        item["callback"] = c.hasCallback;
    } else if (c.method == "setRelatedSysInfo") {
        item["type"] = c.first;
        item["value"] = static_cast<Json::Int64>(c.second);
    } else if (c.method == "ruleCtl") {
        item["rule"] = c.first;
        item["status"] = c.status;
        item["data"] = dataJson(c.entries);
    }
}

Json::Value answerJson(const torq_sim::SentAnswer& a) {
    Json::Value out(Json::objectValue);
    out["exception"] = a.exception;
    out["serviceSpecificError"] = a.serviceSpecificError;
    out["transactionError"] = a.transactionError;
    out["message"] = a.message;
    out["result"] = a.result ? Json::Value(*a.result) : Json::Value();
    if (a.records) out["records"] = dataJson(*a.records);
    if (a.text) out["text"] = *a.text;
    return out;
}

}  // namespace

std::string validUtf8(const std::string& text) {
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
            out += "\\x";
            out += kHex[b >> 4];
            out += kHex[b & 0xf];
        }
    }
    return out;
}

std::string toJsonLine(const Json::Value& value) {
    // A StreamWriter keeps state while it writes: one per line keeps this thread-safe, at the
    // cost of an allocation next to a line's worth of formatting.
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;  // text as it is, not as \u escapes
    const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    std::ostringstream out;
    writer->write(withValidStrings(value), &out);
    return out.str();
}

Json::Value halJson(const std::vector<torq_sim::JournalEntry>& entries) {
    Json::Value list(Json::arrayValue);
    for (const auto& e : entries) {
        Json::Value item(Json::objectValue);
        item["seq"] = static_cast<Json::UInt64>(e.seq);
        switch (e.type) {
            case torq_sim::JournalEntry::Type::kCall:
                item["type"] = "call";
                item["method"] = e.call.method;
                callArguments(e.call, item);
                item["answer"] = answerJson(e.answer);
                break;
            case torq_sim::JournalEntry::Type::kCallback:
                item["type"] = "callback";
                item["method"] = e.method;
                item["to"] = e.target;
                item["records"] = dataJson(e.records);
                break;
            case torq_sim::JournalEntry::Type::kNote:
                item["type"] = "note";
                item["text"] = e.args;
                break;
        }
        list.append(std::move(item));
    }
    return list;
}

Json::Value recordsJson(const std::vector<std::pair<std::string, std::string>>& records,
                        const char* key) {
    Json::Value list(Json::arrayValue);
    for (const auto& [k, v] : records) {
        Json::Value item(Json::objectValue);
        item[key] = k;
        item["value"] = v;
        list.append(std::move(item));
    }
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

Output::Output(bool json, FILE* out, FILE* err) : json_(json), out_(out), err_(err) {}

void Output::emit(const std::string& line) {
    const bool ok = fwrite(line.data(), 1, line.size(), out_) == line.size() &&
                    fputc('\n', out_) != EOF && fflush(out_) == 0;
    if (!ok) writeFailed_ = true;
}

bool Output::writeFailed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return writeFailed_ || ferror(out_) != 0;
}

void Output::report(const Report& r) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        Json::Value j(Json::objectValue);
        j["command"] = r.command;
        j["call"] = r.call;
        j["args"] = r.args;
        j["result"] = r.result ? Json::Value(static_cast<Json::Int64>(*r.result)) : Json::Value();
        j["ok"] = r.ok;
        for (const std::string& key : r.extra.getMemberNames()) j[key] = r.extra[key];
        if (r.halVisible) j["hal"] = halJson(r.hal);
        emit(toJsonLine(j));
        return;
    }
    std::string head = r.call + "(" + r.args + ")";
    if (r.result) {
        head += " = " + std::to_string(*r.result);
    } else {
        head += " done";
    }
    if (!r.ok) head += "  [failed]";
    emit(head);
    for (const std::string& d : r.details) emit("    " + d);
    if (r.halVisible) {
        if (r.hal.empty()) emit("  HAL received: nothing");
        // In the order of JournalEntry::Type: a call, a callback, a note.
        static const char* const kPrefix[] = {"  HAL received: ", "  HAL sent:     ", "  "};
        for (const auto& e : r.hal) emit(kPrefix[static_cast<int>(e.type)] + e.toString());
    }
}

void Output::callback(const CallbackEvent& event) {
    Json::Value j(Json::objectValue);
    j["event"] = "callback";
    j["to"] = event.to;
    j["handle"] = event.handle > 0 ? Json::Value(event.handle) : Json::Value();
    j["records"] = recordsJson(event.records, event.byPath ? "path" : "id");
    message(describeCallback(event), j);
}

void Output::log(const LogLine& line) {
    Json::Value j(Json::objectValue);
    j["event"] = "log";
    j["priority"] = priorityLetter(line.priority);
    j["tag"] = line.tag;
    j["message"] = line.message;
    message(std::string("log: ") + j["priority"].asString() + "/" + line.tag + ": " + line.message,
            j);
}

void Output::message(const std::string& text, const Json::Value& json) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) {
        emit(text);
    } else if (json.isObject()) {
        emit(toJsonLine(json));
    }
}

void Output::raw(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fwrite(text.data(), 1, text.size(), out_) != text.size() || fflush(out_) != 0)
        writeFailed_ = true;
}

void Output::error(const std::string& text, int exit) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        Json::Value j(Json::objectValue);
        j["error"] = text;
        j["exit"] = exit;
        emit(toJsonLine(j));
    } else {
        fflush(out_);
    }
    fprintf(err_, "torqctl: %s\n", text.c_str());
    fflush(err_);
}

}  // namespace torqctl
