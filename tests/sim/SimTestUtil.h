#pragma once

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include "torq_test/Records.h"

namespace aidl::vendor::quarn::hardware::torq {
inline void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace torq_sim_test {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;
using Records = std::vector<TorqRequestData>;

// A callback object that records what it receives.
class RecordingCallback : public ::aidl::vendor::quarn::hardware::torq::BnTorqCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const Records& data) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            calls_.push_back(data);
        }
        cv_.notify_all();
        return ::ndk::ScopedAStatus::ok();
    }
    std::vector<Records> calls() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }
    bool waitFor(size_t n, int64_t timeoutMs = 5000) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [&] { return calls_.size() >= n; });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable cv_;
    std::vector<Records> calls_;
};

using torq_test::idRecord;

inline TorqRequestParcel parcel(int32_t kind, Records data, int64_t duration = 0) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    p.duration = duration;
    return p;
}

}  // namespace torq_sim_test
