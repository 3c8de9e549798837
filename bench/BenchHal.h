#pragma once

// A Torq HAL that answers every call at once, in an emulated process of its own, registered as
// "vendor.quarn.hardware.torq.ITorq/default". It does the least a service can do, the same for
// every caller, so that a front-end call and its floor differ only by what the caller does.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace zel_bench {

using ::aidl::vendor::quarn::hardware::torq::BnTorq;
using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

inline const char* const kInstance = "vendor.quarn.hardware.torq.ITorq/default";

// The handle of every request and the result of every other call. Listening registrations get
// handles of their own, above kHandle, so that taking one back leaves the others held.
constexpr int32_t kHandle = 1;
constexpr int32_t kResult = 0;

// What the HAL keeps, shared by its service and the bench.
struct Seen {
    std::vector<TorqRequestData> stateAnswer;
    std::atomic<int32_t> nextListening{kHandle + 1};
    std::atomic<bool> noting{false};
    std::mutex mutex;
    std::vector<std::string> calls;

    // `describe` runs only while noting.
    template <typename Describe>
    ndk::ScopedAStatus note(Describe describe) {
        if (noting.load(std::memory_order_relaxed)) {
            std::lock_guard<std::mutex> lock(mutex);
            calls.push_back(describe());
        }
        return ndk::ScopedAStatus::ok();
    }
};

// The service, on the binder threads of the HAL's process.
class ImmediateTorq : public BnTorq {
  public:
    explicit ImmediateTorq(std::shared_ptr<Seen> seen) : seen_(std::move(seen)) {}

    ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* ret) override {
        *ret = kHandle;
        return seen_->note([&] { return "request " + parcel.toString(); });
    }
    ndk::ScopedAStatus release(int32_t handle, int32_t* ret) override {
        *ret = kResult;
        return seen_->note([handle] { return "release " + std::to_string(handle); });
    }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                    std::vector<TorqRequestData>* ret) override {
        *ret = seen_->stateAnswer;
        return seen_->note([&] { return "stateRequest " + parcel.toString(); });
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                         const std::shared_ptr<ITorqCallback>&,
                                         int32_t* ret) override {
        *ret = seen_->nextListening++;
        return seen_->note([&] { return "listeningRegister " + parcel.toString(); });
    }
    ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* ret) override {
        *ret = kResult;
        return seen_->note([handle] { return "listeningUnregister " + std::to_string(handle); });
    }
    // What the front ends measured here never call.
    ndk::ScopedAStatus init() override { return unsupported(); }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string*) override {
        return unsupported();
    }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t*) override {
        return unsupported();
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>&,
                                                const std::shared_ptr<ITorqCallback>&,
                                                int32_t*) override {
        return unsupported();
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t, int32_t*) override {
        return unsupported();
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t*) override {
        return unsupported();
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t*) override {
        return unsupported();
    }
    ndk::ScopedAStatus ruleCtl(int32_t rule, int32_t status,
                               const std::vector<TorqRequestData>& data, int32_t* ret) override {
        *ret = kResult;
        return seen_->note([&] {
            std::string text = "ruleCtl " + std::to_string(rule) + " " + std::to_string(status);
            for (const TorqRequestData& d : data) text += " " + d.toString();
            return text;
        });
    }

  private:
    static ndk::ScopedAStatus unsupported() {
        return ndk::ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
    }

    std::shared_ptr<Seen> seen_;
};

class BenchHal {
  public:
    // `stateAnswer` is what every stateRequest gets back.
    explicit BenchHal(std::vector<TorqRequestData> stateAnswer) {
        seen_->stateAnswer = std::move(stateAnswer);
        pid_ = binder_host::createProcess("torq-hal-bench");
        binder_exception_t added = EX_ILLEGAL_STATE;
        const bool ran = binder_host::runInProcess(pid_, [&] {
            // The process keeps the service alive through its registration.
            auto service = ndk::SharedRefBase::make<ImmediateTorq>(seen_);
            added = AServiceManager_addService(service->asBinder().get(), kInstance);
        });
        if (!ran || added != EX_NONE) throw std::runtime_error("cannot register the bench HAL");
        binder_host::declareInstance(kInstance);
    }
    ~BenchHal() {
        binder_host::killProcess(pid_);
        binder_host::undeclareInstance(kInstance);
    }
    BenchHal(const BenchHal&) = delete;
    BenchHal& operator=(const BenchHal&) = delete;

    // What the HAL received while `work` ran, one line per call in arrival order. The HAL notes
    // nothing otherwise: a measured call costs it one flag test.
    std::vector<std::string> seenDuring(const std::function<bool()>& work, bool* answered) {
        {
            std::lock_guard<std::mutex> lock(seen_->mutex);
            seen_->calls.clear();
        }
        seen_->noting = true;
        *answered = work();
        seen_->noting = false;
        // The calls were synchronous: whatever was sent has been noted by now.
        std::lock_guard<std::mutex> lock(seen_->mutex);
        return std::move(seen_->calls);
    }

    // A client proxy for the calling (default) process, as the front ends get theirs.
    static std::shared_ptr<ITorq> connectProxy() {
        ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
        return ITorq::fromBinder(binder);
    }

  private:
    std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
    int32_t pid_ = 0;
};

}  // namespace zel_bench
