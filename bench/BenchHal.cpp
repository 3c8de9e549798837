#include "BenchHal.h"

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include <atomic>
#include <mutex>
#include <stdexcept>

namespace zel_bench {

const char* const kTorqInstance = "vendor.quarn.hardware.torq.ITorq/default";

using ::aidl::vendor::quarn::hardware::torq::BnTorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;

struct BenchHal::State {
    std::vector<TorqRequestData> stateAnswer;
    std::atomic<bool> capturing{false};
    std::atomic<uint64_t> calls{0};
    std::mutex mutex;
    std::vector<SeenCall> seen;

    // The whole per-call bookkeeping while measuring: one counter and one flag test.
    bool counted() {
        calls.fetch_add(1, std::memory_order_relaxed);
        return capturing.load(std::memory_order_relaxed);
    }
    void keep(SeenCall&& call) {
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(std::move(call));
    }
};

namespace {

class ImmediateTorq : public BnTorq {
  public:
    explicit ImmediateTorq(std::shared_ptr<BenchHal::State> state) : state_(std::move(state)) {}

    ndk::ScopedAStatus init() override { return answer("init"); }

    ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* ret) override {
        *ret = kHandle;
        return answer("request", &parcel);
    }
    ndk::ScopedAStatus release(int32_t handle, int32_t* ret) override {
        *ret = kResult;
        if (state_->counted()) {
            SeenCall call;
            call.method = "release";
            call.handle = handle;
            state_->keep(std::move(call));
        }
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                    std::vector<TorqRequestData>* ret) override {
        *ret = state_->stateAnswer;
        return answer("stateRequest", &parcel);
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                         const std::shared_ptr<ITorqCallback>&,
                                         int32_t* ret) override {
        *ret = kHandle;
        return answer("listeningRegister", &parcel);
    }
    ndk::ScopedAStatus listeningUnregister(int32_t, int32_t* ret) override {
        *ret = kResult;
        return answer("listeningUnregister");
    }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string* ret) override {
        ret->clear();
        return answer("propertyGet");
    }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t* ret) override {
        *ret = kResult;
        return answer("propertySet");
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>&,
                                                const std::shared_ptr<ITorqCallback>&,
                                                int32_t* ret) override {
        *ret = kHandle;
        return answer("thermalListeningRegister");
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t, int32_t* ret) override {
        *ret = kResult;
        return answer("thermalListeningUnregister");
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel& parcel, int32_t* ret) override {
        *ret = kResult;
        return answer("notifyEvent", &parcel);
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override {
        *ret = kResult;
        return answer("setRelatedSysInfo");
    }
    ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                               const std::vector<TorqRequestData>& data, int32_t* ret) override {
        *ret = kResult;
        if (state_->counted()) {
            SeenCall call;
            call.method = "ruleCtl";
            call.ruleId = ruleId;
            call.status = status;
            call.entries = data;
            state_->keep(std::move(call));
        }
        return ndk::ScopedAStatus::ok();
    }

  private:
    ndk::ScopedAStatus answer(const char* method, const TorqRequestParcel* parcel = nullptr) {
        if (state_->counted()) {
            SeenCall call;
            call.method = method;
            if (parcel != nullptr) {
                call.parcel = *parcel;
                call.parcel.callback = nullptr;  // keep no binder alive past the call
            }
            state_->keep(std::move(call));
        }
        return ndk::ScopedAStatus::ok();
    }

    std::shared_ptr<BenchHal::State> state_;
};

}  // namespace

BenchHal::BenchHal(std::vector<TorqRequestData> stateAnswer) : state_(std::make_shared<State>()) {
    state_->stateAnswer = std::move(stateAnswer);
    pid_ = binder_host::createProcess("torq-hal-bench");
    binder_exception_t added = EX_ILLEGAL_STATE;
    const bool ran = binder_host::runInProcess(pid_, [&] {
        // The process keeps the service alive through its registration.
        std::shared_ptr<ImmediateTorq> service = ndk::SharedRefBase::make<ImmediateTorq>(state_);
        added = AServiceManager_addService(service->asBinder().get(), kTorqInstance);
    });
    if (!ran || added != EX_NONE) throw std::runtime_error("cannot register the bench HAL");
    binder_host::declareInstance(kTorqInstance);
}

BenchHal::~BenchHal() {
    binder_host::killProcess(pid_);
    binder_host::undeclareInstance(kTorqInstance);
}

void BenchHal::startCapture() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->seen.clear();
    state_->capturing.store(true);
}

std::vector<SeenCall> BenchHal::stopCapture() {
    state_->capturing.store(false);
    // The calls were synchronous: whatever was sent has been noted by now.
    std::lock_guard<std::mutex> lock(state_->mutex);
    std::vector<SeenCall> seen;
    seen.swap(state_->seen);
    return seen;
}

uint64_t BenchHal::callCount() const {
    return state_->calls.load();
}

std::shared_ptr<ITorq> connectProxy() {
    ndk::SpAIBinder binder(AServiceManager_checkService(kTorqInstance));
    return ITorq::fromBinder(binder);
}

}  // namespace zel_bench
