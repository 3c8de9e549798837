#include "Output.h"

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

Json halJson(const std::vector<torq_sim::JournalEntry>& entries) {
    Json list = Json::array();
    for (const auto& e : entries) {
        Json item = Json::object();
        switch (e.type) {
            case torq_sim::JournalEntry::Type::kCall:
                item.set("type", "call").set("method", e.method).set("args", e.args);
                item.set("result", e.result);
                break;
            case torq_sim::JournalEntry::Type::kCallback:
                item.set("type", "callback").set("records", e.args).set("to", e.result);
                break;
            case torq_sim::JournalEntry::Type::kNote:
                item.set("type", "note").set("text", e.args);
                break;
        }
        list.push(std::move(item));
    }
    return list;
}

std::string halLine(const torq_sim::JournalEntry& e) {
    switch (e.type) {
        case torq_sim::JournalEntry::Type::kCall:
            return "  HAL received: " + e.toString();
        case torq_sim::JournalEntry::Type::kCallback:
            return "  HAL sent:     " + e.toString();
        case torq_sim::JournalEntry::Type::kNote:
            return "  " + e.toString();
    }
    return "";
}

}  // namespace

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
    fputs(line.c_str(), out_);
    fputc('\n', out_);
    fflush(out_);
}

void Output::report(const Report& r) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (json_) {
        Json j = Json::object();
        j.set("command", r.command).set("call", r.call).set("args", r.args);
        j.set("result", r.result ? Json(*r.result) : Json());
        j.set("ok", r.ok);
        j.merge(r.extra);
        if (r.halVisible) j.set("hal", halJson(r.hal));
        emit(j.dump());
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
        for (const auto& e : r.hal) emit(halLine(e));
    }
}

void Output::callback(const CallbackEvent& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) {
        emit(describeCallback(event));
        return;
    }
    Json records = Json::array();
    for (const auto& [key, value] : event.records) {
        Json item = Json::object();
        item.set(event.byPath ? "path" : "id", key).set("value", value);
        records.push(std::move(item));
    }
    Json j = Json::object();
    j.set("event", "callback").set("to", event.to);
    j.set("handle", event.handle > 0 ? Json(event.handle) : Json());
    j.set("records", std::move(records));
    emit(j.dump());
}

void Output::log(const LogLine& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) {
        emit(std::string("log: ") + priorityLetter(line.priority) + "/" + line.tag + ": " +
             line.message);
        return;
    }
    Json j = Json::object();
    j.set("event", "log").set("priority", priorityLetter(line.priority));
    j.set("tag", line.tag).set("message", line.message);
    emit(j.dump());
}

void Output::message(const std::string& text, const Json& json) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!json_) {
        emit(text);
    } else if (json.isObject()) {
        emit(json.dump());
    }
}

void Output::raw(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    fputs(text.c_str(), out_);
    fflush(out_);
}

void Output::error(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    fflush(out_);
    fprintf(err_, "torqctl: %s\n", text.c_str());
    fflush(err_);
}

}  // namespace torqctl
