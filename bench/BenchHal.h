#pragma once

// A Torq HAL that answers every call at once, in an emulated process of its own, registered as
// "vendor.quarn.hardware.torq.ITorq/default". It does the least a service can do, the same for
// every caller, so that a front-end call and its floor differ only by what the caller does.

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zel_bench {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

// The handle of every request and the result of every other call. Listening registrations get
// handles of their own, above kHandle, so that taking one back leaves the others held.
constexpr int32_t kHandle = 1;
constexpr int32_t kResult = 0;

class BenchHal {
  public:
    // `stateAnswer` is what every stateRequest gets back.
    explicit BenchHal(std::vector<TorqRequestData> stateAnswer);
    ~BenchHal();  // the HAL's process dies

    BenchHal(const BenchHal&) = delete;
    BenchHal& operator=(const BenchHal&) = delete;

    // What the HAL received while `work` ran, one line per call in arrival order. The HAL notes
    // nothing otherwise: a measured call costs it one flag test.
    std::vector<std::string> seenDuring(const std::function<bool()>& work, bool* answered);

    struct Seen;

  private:
    std::shared_ptr<Seen> seen_;
    int32_t pid_ = 0;
};

// A client proxy of the HAL for the calling (default) process, as the front ends get theirs;
// null when the service is not there.
std::shared_ptr<ITorq> connectProxy();

}  // namespace zel_bench
