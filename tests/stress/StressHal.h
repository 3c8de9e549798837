#pragma once

// A small Torq HAL for the stress test. It lives in its own emulated process, can be killed and
// started again any number of times, and answers fast and predictably so that callers can tell a
// valid result from garbage:
//   - handles come from one counter that never repeats across restarts, so a valid handle is
//     1..issuedHandles();
//   - a request that carries a callback is answered at once, before the reply, with its own
//     records echoed back, except when its handle is a multiple of kWithholdEvery: then the
//     answer is withheld for good (a HAL that never answers);
//   - state queries echo the ids or paths with a value derived from them (stateValue), history
//     has two records, power-mode status is kPmStatus;
//   - listening registrations are notified once, at once (notifyValue), and kept until
//     unregistered;
//   - every other int method returns 0.
// It keeps no record of the calls: memory stays flat however long it runs.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <binder_host/process.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace stress {

using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

inline constexpr const char* kInstance = "vendor.quarn.hardware.torq.ITorq/default";
inline constexpr int32_t kWithholdEvery = 256;
inline constexpr int32_t kPmStatus = 7;
inline constexpr const char* kHistory = "start:h1;none;end";

// The value the HAL reports for an id or a path in state answers and listening notices.
std::string stateValue(int32_t id);
std::string stateValue(const std::string& path);
std::string notifyValue(int32_t id);
std::string notifyValue(const std::string& path);

inline bool withheld(int32_t handle) {
    return handle > 0 && handle % kWithholdEvery == 0;
}

struct HalCounters {
    std::atomic<int32_t> lastHandle{0};
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> callbackRequests{0};
    std::atomic<uint64_t> answersSent{0};
    std::atomic<uint64_t> answersWithheld{0};
    std::atomic<uint64_t> notificationsSent{0};
    std::atomic<uint64_t> malformed{0};  // parcels no front end builds (unknown kind etc.)
    std::atomic<bool> withholdAll{false};
    std::atomic<int> delayUs{0};  // each call sleeps this long (to make the HAL start threads)
};

class StressHal {
  public:
    explicit StressHal(size_t binderThreads);
    ~StressHal();  // kills the running process and undeclares the instance

    StressHal(const StressHal&) = delete;
    StressHal& operator=(const StressHal&) = delete;

    // A new process registers the instance (declared in the manifest from the first start on).
    void start();
    // The process dies as if it crashed; the instance stays declared, so torqHalclient callers
    // wait for the next start.
    void kill();
    binder_host::ProcessId pid() const;
    // Every process this HAL ran in, the running one last.
    std::vector<binder_host::ProcessId> pids() const;
    int starts() const;

    HalCounters& counters() { return *counters_; }
    int32_t issuedHandles() const { return counters_->lastHandle.load(); }

  private:
    const size_t binderThreads_;
    std::shared_ptr<HalCounters> counters_;
    mutable std::mutex mu_;
    std::vector<binder_host::ProcessId> pids_;
    std::shared_ptr<::aidl::vendor::quarn::hardware::torq::BnTorq> service_;
    bool running_ = false;
};

}  // namespace stress
