#include "BenchHal.h"

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>

#include <atomic>
#include <mutex>
#include <stdexcept>

namespace zel_bench {

using ::aidl::vendor::quarn::hardware::torq::BnTorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;

namespace {

const char* const kInstance = "vendor.quarn.hardware.torq.ITorq/default";

}  // namespace

struct BenchHal::Seen {
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
    ndk::ScopedAStatus note(const char* method) {
        return note([method] { return std::string(method); });
    }
};

namespace {

class ImmediateTorq : public BnTorq {
  public:
    explicit ImmediateTorq(std::shared_ptr<BenchHal::Seen> seen) : seen_(std::move(seen)) {}

    ndk::ScopedAStatus init() override { return seen_->note("init"); }
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
    ndk::ScopedAStatus listeningUnregister(int32_t, int32_t* ret) override {
        *ret = kResult;
        return seen_->note("listeningUnregister");
    }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string* ret) override {
        ret->clear();
        return seen_->note("propertyGet");
    }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t* ret) override {
        *ret = kResult;
        return seen_->note("propertySet");
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>&,
                                                const std::shared_ptr<ITorqCallback>&,
                                                int32_t* ret) override {
        *ret = kHandle;
        return seen_->note("thermalListeningRegister");
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t, int32_t* ret) override {
        *ret = kResult;
        return seen_->note("thermalListeningUnregister");
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t* ret) override {
        *ret = kResult;
        return seen_->note("notifyEvent");
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override {
        *ret = kResult;
        return seen_->note("setRelatedSysInfo");
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
    std::shared_ptr<BenchHal::Seen> seen_;
};

}  // namespace

BenchHal::BenchHal(std::vector<TorqRequestData> stateAnswer) : seen_(std::make_shared<Seen>()) {
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

BenchHal::~BenchHal() {
    binder_host::killProcess(pid_);
    binder_host::undeclareInstance(kInstance);
}

std::vector<std::string> BenchHal::seenDuring(const std::function<bool()>& work, bool* answered) {
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

std::shared_ptr<ITorq> connectProxy() {
    ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
    return ITorq::fromBinder(binder);
}

}  // namespace zel_bench
