#pragma once

// A scriptable Torq HAL for tests: a BnTorq living in its own emulated process, registered as
// "vendor.quarn.hardware.torq.ITorq/default". It records every call with its arguments, answers
// with programmable results and statuses, keeps the callbacks it was given and can invoke them.

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <binder_host/process.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace torq_test {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

extern const char* const kTorqInstance;  // "vendor.quarn.hardware.torq.ITorq/default"

// One call as the HAL received it. Only the fields of the method's arguments are set.
struct RecordedCall {
    std::string method;        // "init", "request", "release", "stateRequest", "listeningRegister",
                               // "listeningUnregister", "propertyGet", "propertySet",
                               // "thermalListeningRegister", "thermalListeningUnregister",
                               // "notifyEvent", "setRelatedSysInfo", "ruleCtl"
    TorqRequestParcel parcel;  // request, stateRequest, listeningRegister,
                               // notifyEvent; its `callback` is always cleared (see
                               // hasCallback), so records never keep callbacks alive
    int32_t handle = 0;        // release, listeningUnregister, thermalListeningUnregister
    std::vector<int32_t> ids;  // thermalListeningRegister
    bool hasCallback = false;  // listeningRegister/thermalListeningRegister argument,
                               // or a callback inside the parcel
    std::string name, value;   // propertyGet, propertySet
    int32_t first = 0;         // setRelatedSysInfo first, ruleCtl rule id
    int64_t second = 0;        // setRelatedSysInfo second
    int32_t status = 0;        // ruleCtl status
    std::vector<TorqRequestData> entries;  // ruleCtl entries
    binder_host::ProcessId callingProcess = 0;
};

// How the HAL answers one method. Defaults: OK status, result 1 for int methods.
struct Answer {
    int32_t result = 1;                    // the int out value
    int32_t exception = 0;                 // EX_NONE; EX_SERVICE_SPECIFIC etc. give a bad status
    int32_t serviceSpecificError = 0;      // with EX_SERVICE_SPECIFIC
    int32_t transactionError = 0;          // STATUS_* returned by the transaction itself
    bool writeResult = true;               // false: the HAL does not set its out value. With a
                                           // bad status the caller's pre-set result stays;
                                           // with OK the reply carries the stub's default (0,
                                           // empty string, empty vector)
    std::vector<TorqRequestData> records;  // stateRequest reply
    std::string text;                      // propertyGet reply
    std::string message;                   // exception message (with `exception`)
};

class FakeTorqHal {
  public:
    // Creates the HAL process, registers the service and (by default) declares the instance.
    explicit FakeTorqHal(bool declare = true);
    ~FakeTorqHal();  // kills the HAL process and undeclares the instance

    FakeTorqHal(const FakeTorqHal&) = delete;
    FakeTorqHal& operator=(const FakeTorqHal&) = delete;

    binder_host::ProcessId pid() const;
    bool alive() const;
    void kill();     // the HAL process dies: death notices fire, registration disappears
    void restart();  // a new HAL process registers the same instance (kills the old one first)

    // Answers. Per-method answers stay until changed; `answerOnce` applies to the next call only.
    // Without one, request/listeningRegister/thermalListeningRegister give handles counting up
    // from 1 (again from each restart).
    void setAnswer(const std::string& method, const Answer& answer);
    void answerOnce(const std::string& method, const Answer& answer);
    void setDefaultAnswers();

    // What the HAL received, in arrival order.
    std::vector<RecordedCall> calls() const;
    std::vector<RecordedCall> calls(const std::string& method) const;
    RecordedCall last(const std::string& method) const;  // fails the test if none
    size_t count(const std::string& method) const;
    void clearCalls();
    // Waits until at least `n` calls of `method` arrived. False on timeout.
    bool waitForCalls(const std::string& method, size_t n, int64_t timeoutMs = 5000) const;
    // Calls of `method` arriving from now on are recorded and then wait inside the HAL until
    // releaseHeld(): a call kept in flight for as long as the test needs. Release before the
    // fake goes away.
    void holdCalls(const std::string& method);
    void releaseHeld();

    // Callbacks the HAL received (from the parcel's `callback` field or the callback argument),
    // in arrival order. The HAL holds a strong reference to each until `dropCallbacks` (or until
    // the HAL process dies).
    size_t callbackCount() const;
    // Calls onCallback of callback `index` from a thread of the HAL process.
    // STATUS_BAD_INDEX for an unknown index (kill() drops every callback), STATUS_DEAD_OBJECT
    // when the HAL process died some other way.
    ndk::ScopedAStatus invokeCallback(size_t index, const std::vector<TorqRequestData>& data);
    void dropCallbacks();  // the HAL lets go of every callback it holds

  private:
    struct State;
    std::shared_ptr<State> state_;
};

// Record helpers for tests.
TorqRequestData idRecord(int32_t id, std::optional<std::string> value = std::nullopt);
TorqRequestData pathRecord(std::optional<std::string> path, std::optional<std::string> value);

}  // namespace torq_test
