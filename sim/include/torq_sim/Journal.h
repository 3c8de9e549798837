#pragma once

// What the simulated HAL received (every ITorq call with its arguments and its answer), what it
// sent (callbacks), and notes about its life (started, killed). Shared by successive HAL
// instances so that a restart does not lose the earlier story. Thread-safe.

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace torq_sim {

struct JournalEntry {
    enum class Type { kCall, kCallback, kNote };
    uint64_t seq = 0;    // 1, 2, ... in order of recording
    int64_t timeMs = 0;  // on the HAL's clock
    Type type = Type::kCall;
    std::string method;  // "request", "onCallback", ...; empty for notes
    std::string args;    // readable arguments (or the note's text)
    std::string result;  // readable answer; for callbacks, what it answered
    // "request(kind=1 data=[...]) -> 3", "onCallback([...]) for listener #2", "-- note --"
    std::string toString() const;
};

class Journal {
  public:
    explicit Journal(size_t capacity = 4096);

    void addCall(int64_t timeMs, const std::string& method, const std::string& args,
                 const std::string& result);
    void addCallback(int64_t timeMs, const std::string& args, const std::string& target);
    void addNote(int64_t timeMs, const std::string& text);

    // The sequence number the next entry will get: entries recorded later have seq >= mark.
    uint64_t mark() const;
    std::vector<JournalEntry> since(uint64_t mark) const;
    std::vector<JournalEntry> entries() const;
    size_t size() const;

  private:
    void add(JournalEntry entry);

    const size_t capacity_;
    mutable std::mutex mutex_;
    std::deque<JournalEntry> entries_;
    uint64_t nextSeq_ = 1;
};

}  // namespace torq_sim
