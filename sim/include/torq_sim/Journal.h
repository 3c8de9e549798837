#pragma once

// What the simulated HAL received (every ITorq call with its arguments and its answer), what it
// sent (callbacks), and notes about its life (started, killed). Shared by successive HAL
// instances so that a restart does not lose the earlier story. Thread-safe.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace torq_sim {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

/**
 * One ITorq call as the HAL received it, unmarshalled in the HAL's process. Only the fields that
 * carry the method's arguments are set; the others keep their defaults.
 */
struct ReceivedCall {
    std::string method;        // "init", "request", "release", ... (the ITorq method name)
    TorqRequestParcel parcel;  // request, stateRequest, listeningRegister, notifyEvent; its
                               // `callback` is cleared so that records never keep a client's
                               // binder alive (hasCallback tells whether one came)
    bool hasCallback = false;  // a callback in the parcel or as the callback argument
    int32_t handle = 0;        // release, listeningUnregister, thermalListeningUnregister
    std::vector<int32_t> ids;  // thermalListeningRegister
    std::string name;          // propertyGet, propertySet
    std::string value;         // propertySet
    int32_t first = 0;         // setRelatedSysInfo type, ruleCtl rule id
    int64_t second = 0;        // setRelatedSysInfo value
    int32_t status = 0;        // ruleCtl status
    std::vector<TorqRequestData> entries;  // ruleCtl data
    int32_t callingPid = 0;                // the caller's process (AIBinder_getCallingPid)
};

/** What the HAL answered to one call. A value is set only when the reply carried it. */
struct SentAnswer {
    int32_t exception = 0;             // EX_NONE, or the binder exception code of the reply
    int32_t serviceSpecificError = 0;  // with EX_SERVICE_SPECIFIC
    int32_t transactionError = 0;      // a STATUS_* the transaction itself failed with
    std::string message;               // the exception's message
    std::optional<int32_t> result;     // the int out value
    std::optional<std::vector<TorqRequestData>> records;  // stateRequest's reply
    std::optional<std::string> text;                      // propertyGet's reply
};

struct JournalEntry {
    enum class Type { kCall, kCallback, kNote };
    uint64_t seq = 0;    // 1, 2, ... in order of recording
    int64_t timeMs = 0;  // on the HAL's clock
    Type type = Type::kCall;
    std::string method;                    // "request", "onCallback", ...; empty for notes
    std::string args;                      // readable arguments (or the note's text)
    std::string result;                    // readable answer; for callbacks, what it answered
    ReceivedCall call;                     // kCall: the call as received
    SentAnswer answer;                     // kCall: the answer sent back
    std::vector<TorqRequestData> records;  // kCallback: what the callback carried
    std::string target;                    // kCallback: whom it went to ("listener #2", ...)
    // "request(kind=1 data=[...]) -> 3", "onCallback([...]) for listener #2", "-- note --"
    std::string toString() const;
};

class Journal {
  public:
    explicit Journal(size_t capacity = 4096);

    // Records a call; the readable `args` and `result` are rendered from the records.
    void addCall(int64_t timeMs, ReceivedCall call, SentAnswer answer);
    void addCallback(int64_t timeMs, std::vector<TorqRequestData> records, std::string target);
    void addNote(int64_t timeMs, const std::string& text);

    // The sequence number the next entry will get: entries recorded later have seq >= mark.
    uint64_t mark() const;
    std::vector<JournalEntry> since(uint64_t mark) const;
    std::vector<JournalEntry> entries() const;
    size_t size() const;
    // Waits up to `timeoutMs` for an entry with seq >= mark to be recorded. False on timeout.
    bool waitPast(uint64_t mark, int64_t timeoutMs) const;

  private:
    void add(JournalEntry entry);

    const size_t capacity_;
    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    std::deque<JournalEntry> entries_;
    uint64_t nextSeq_ = 1;
};

}  // namespace torq_sim
