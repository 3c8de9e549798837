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
    // Per lead byte: the sequence's length and the range its second byte must lie in.
    struct Lead {
        unsigned char first, last;
        size_t length;
        unsigned char min1, max1;
    };
    static const Lead kLeads[] = {
            {0x00, 0x7f, 1, 0, 0},       {0xc2, 0xdf, 2, 0x80, 0xbf}, {0xe0, 0xe0, 3, 0xa0, 0xbf},
            {0xe1, 0xec, 3, 0x80, 0xbf}, {0xed, 0xed, 3, 0x80, 0x9f}, {0xee, 0xef, 3, 0x80, 0xbf},
            {0xf0, 0xf0, 4, 0x90, 0xbf}, {0xf1, 0xf3, 4, 0x80, 0xbf}, {0xf4, 0xf4, 4, 0x80, 0x8f}};
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    for (const Lead& lead : kLeads) {
        if (byte(i) < lead.first || byte(i) > lead.last) continue;
        if (lead.length == 1) return 1;
        if (i + lead.length > text.size() || byte(i + 1) < lead.min1 || byte(i + 1) > lead.max1)
            return 0;
        for (size_t k = 2; k < lead.length; ++k) {
            if ((byte(i + k) & 0xc0) != 0x80) return 0;
        }
        return lead.length;
    }
    return 0;
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
