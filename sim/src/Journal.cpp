#include "torq_sim/Journal.h"

#include <chrono>
#include <utility>

#include "torq_sim/Render.h"

namespace torq_sim {

namespace {

bool takesParcel(const std::string& method) {
    return method == "request" || method == "stateRequest" || method == "listeningRegister" ||
           method == "notifyEvent";
}

// The arguments as the journal has always shown them: "kind=1 data=[...]", "3", "\"name\"".
std::string renderArgs(const ReceivedCall& c) {
    const std::string callback = c.hasCallback ? "callback" : "null";
    if (c.method == "listeningRegister") return renderParcel(c.parcel) + ", " + callback;
    if (takesParcel(c.method)) {
        return renderParcel(c.parcel) + (c.hasCallback ? " callback=yes" : "");
    }
    if (c.method == "release" || c.method == "listeningUnregister" ||
        c.method == "thermalListeningUnregister") {
        return std::to_string(c.handle);
    }
    if (c.method == "propertyGet") return quoted(c.name);
    if (c.method == "propertySet") return quoted(c.name) + ", " + quoted(c.value);
    if (c.method == "thermalListeningRegister") return renderInts(c.ids) + ", " + callback;
    if (c.method == "setRelatedSysInfo") {
        return std::to_string(c.first) + ", " + std::to_string(c.second);
    }
    if (c.method == "ruleCtl") {
        return std::to_string(c.first) + ", " + std::to_string(c.status) + ", " +
               renderDataList(c.entries);
    }
    return "";
}

std::string renderAnswer(const SentAnswer& a) {
    if (a.transactionError != 0) return "transaction error " + std::to_string(a.transactionError);
    if (a.exception != 0) {
        std::string text = "exception " + std::to_string(a.exception);
        if (a.serviceSpecificError != 0) text += " code " + std::to_string(a.serviceSpecificError);
        if (!a.message.empty()) text += " " + quoted(a.message);
        return text;
    }
    if (a.records) return renderDataList(*a.records);
    if (a.text) return quoted(*a.text);
    if (a.result) return std::to_string(*a.result);
    return "";
}

}  // namespace

std::string JournalEntry::toString() const {
    switch (type) {
        case Type::kCall:
            return method + "(" + args + ")" + (result.empty() ? "" : " -> " + result);
        case Type::kCallback:
            return "onCallback(" + args + ") to " + result;
        case Type::kNote:
            return "-- " + args + " --";
    }
    return args;
}

Journal::Journal(size_t capacity) : capacity_(capacity == 0 ? 1 : capacity) {}

void Journal::add(JournalEntry entry) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        entry.seq = nextSeq_++;
        entries_.push_back(std::move(entry));
        while (entries_.size() > capacity_) entries_.pop_front();
    }
    added_.notify_all();
}

void Journal::addCall(int64_t timeMs, ReceivedCall call, SentAnswer answer) {
    JournalEntry e;
    e.timeMs = timeMs;
    e.type = JournalEntry::Type::kCall;
    e.method = call.method;
    e.args = renderArgs(call);
    e.result = renderAnswer(answer);
    e.call = std::move(call);
    e.answer = std::move(answer);
    add(std::move(e));
}

void Journal::addCallback(int64_t timeMs, std::vector<TorqRequestData> records, std::string target) {
    JournalEntry e;
    e.timeMs = timeMs;
    e.type = JournalEntry::Type::kCallback;
    e.method = "onCallback";
    e.args = renderDataList(records);
    e.result = target;
    e.records = std::move(records);
    e.target = std::move(target);
    add(std::move(e));
}

void Journal::addNote(int64_t timeMs, const std::string& text) {
    JournalEntry e;
    e.timeMs = timeMs;
    e.type = JournalEntry::Type::kNote;
    e.args = text;
    add(std::move(e));
}

uint64_t Journal::mark() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nextSeq_;
}

std::vector<JournalEntry> Journal::since(uint64_t mark) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<JournalEntry> out;
    for (const auto& e : entries_) {
        if (e.seq >= mark) out.push_back(e);
    }
    return out;
}

std::vector<JournalEntry> Journal::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

size_t Journal::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

bool Journal::waitPast(uint64_t mark, int64_t timeoutMs) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return added_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [&] { return nextSeq_ > mark; });
}

}  // namespace torq_sim
