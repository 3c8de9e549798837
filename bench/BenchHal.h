#pragma once

// A Torq HAL that answers every call at once, in its own emulated process, registered as
// "vendor.quarn.hardware.torq.ITorq/default". It does the least a service can do, the same for
// every caller, so that timings differ only by what the callers do.
//
// For the parity checks it can keep what the next calls sent (off while measuring).

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <binder_host/process.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zel_bench {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

extern const char* const kTorqInstance;

// The handle every request gets and the result of every other int method.
constexpr int32_t kHandle = 1;
constexpr int32_t kResult = 0;

// One call as the HAL saw it, kept only while capturing.
struct SeenCall {
    std::string method;
    TorqRequestParcel parcel;              // request, stateRequest
    int32_t handle = 0;                    // release
    int32_t ruleId = 0;                    // ruleCtl
    int32_t status = 0;                    // ruleCtl
    std::vector<TorqRequestData> entries;  // ruleCtl
};

class BenchHal {
  public:
    // `stateAnswer` is what every stateRequest gets back.
    explicit BenchHal(std::vector<TorqRequestData> stateAnswer);
    ~BenchHal();  // the HAL process dies

    BenchHal(const BenchHal&) = delete;
    BenchHal& operator=(const BenchHal&) = delete;

    binder_host::ProcessId pid() const { return pid_; }

    // Between these two, every call is kept; stopCapture returns them in arrival order.
    void startCapture();
    std::vector<SeenCall> stopCapture();

    // How many calls the HAL has answered in all.
    uint64_t callCount() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
    binder_host::ProcessId pid_ = 0;
};

// A client proxy of the registered HAL for the calling (default) process, as the front ends get
// theirs; null when the service is not there.
std::shared_ptr<ITorq> connectProxy();

}  // namespace zel_bench
