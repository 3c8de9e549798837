#include "torq_sim/Journal.h"

#include <utility>

namespace torq_sim {

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
    std::lock_guard<std::mutex> lock(mutex_);
    entry.seq = nextSeq_++;
    entries_.push_back(std::move(entry));
    while (entries_.size() > capacity_) entries_.pop_front();
}

void Journal::addCall(int64_t timeMs, const std::string& method, const std::string& args,
                      const std::string& result) {
    JournalEntry e;
    e.timeMs = timeMs;
    e.type = JournalEntry::Type::kCall;
    e.method = method;
    e.args = args;
    e.result = result;
    add(std::move(e));
}

void Journal::addCallback(int64_t timeMs, const std::string& args, const std::string& target) {
    JournalEntry e;
    e.timeMs = timeMs;
    e.type = JournalEntry::Type::kCallback;
    e.method = "onCallback";
    e.args = args;
    e.result = target;
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

}  // namespace torq_sim
