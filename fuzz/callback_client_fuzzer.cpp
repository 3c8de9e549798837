// A hostile HAL: the callback binders the library hands over with its requests and listening
// registrations are sent raw bytes as transactions, from the HAL's own emulated process, the way
// a broken or malicious HAL could. The client must not crash, must hand its callers only
// well-formed results (every resource with a value, as many paths as values), and must never put
// anything back into request_callbacks.
//
// The clients are made through the public API: a resource request and a path request with a
// callback (one-shot clients) and an id and a path listening registration (kept clients), all
// against a HAL that keeps every callback and never answers on its own.
//
// Input: byte 0 picks the client, byte 1 the transaction (code, oneway flag, whether the
// interface token is written first), the rest is the request's data.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <torqHalclient.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FuzzCheck.h"

namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

constexpr const char* kInstance = "vendor.quarn.hardware.torq.ITorq/default";

// Keeps every callback it is given; answers every call with OK and handle 1.
class KeepingHal : public BnTorq {
  public:
    std::vector<std::shared_ptr<ITorqCallback>> callbacks() {
        std::lock_guard<std::mutex> lock(mu_);
        return callbacks_;
    }

    ndk::ScopedAStatus init() override { return ok(); }
    ndk::ScopedAStatus request(const TorqRequestParcel& p, int32_t* ret) override {
        keep(p.callback);
        return one(ret);
    }
    ndk::ScopedAStatus release(int32_t, int32_t* ret) override { return one(ret); }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel&,
                                    std::vector<TorqRequestData>*) override {
        return ok();
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel&,
                                         const std::shared_ptr<ITorqCallback>& cb,
                                         int32_t* ret) override {
        keep(cb);
        return one(ret);
    }
    ndk::ScopedAStatus listeningUnregister(int32_t, int32_t* ret) override { return one(ret); }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string*) override { return ok(); }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t* ret) override {
        return one(ret);
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>&,
                                                const std::shared_ptr<ITorqCallback>& cb,
                                                int32_t* ret) override {
        keep(cb);
        return one(ret);
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t, int32_t* ret) override {
        return one(ret);
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t* ret) override {
        return one(ret);
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override {
        return one(ret);
    }
    ndk::ScopedAStatus ruleCtl(int32_t, int32_t, const std::vector<TorqRequestData>&,
                               int32_t* ret) override {
        return one(ret);
    }

  private:
    static ndk::ScopedAStatus ok() { return ndk::ScopedAStatus::ok(); }
    static ndk::ScopedAStatus one(int32_t* ret) {
        *ret = 1;
        return ok();
    }
    void keep(const std::shared_ptr<ITorqCallback>& cb) {
        if (cb == nullptr) return;
        std::lock_guard<std::mutex> lock(mu_);
        callbacks_.push_back(cb);
    }

    std::mutex mu_;
    std::vector<std::shared_ptr<ITorqCallback>> callbacks_;
};

// What the callers receive must be well formed, whatever the HAL sent.
class IdCallback : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        for (const ZelClient::Resource& r : resources) {
            FUZZ_CHECK(r.value.has_value(), "a resource reached the caller without a value");
        }
    }
};

class PathCallback : public IClientCallbackByPath {
  public:
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        FUZZ_CHECK(values.size() == paths.size(), "values and paths differ in number");
    }
};

void quietLogger(const __android_logger_data*, const char*) {}

// A thread of the HAL process that runs one job at a time for the fuzzer's thread.
class HalThread {
  public:
    explicit HalThread(binder_host::ProcessId pid) {
        std::thread([this, pid] { binder_host::runInProcess(pid, [this] { loop(); }); }).detach();
    }

    void run(const std::function<void()>& job) {
        std::unique_lock<std::mutex> lock(mu_);
        job_ = &job;
        cv_.notify_all();
        cv_.wait(lock, [this] { return job_ == nullptr; });
    }

  private:
    void loop() {
        std::unique_lock<std::mutex> lock(mu_);
        for (;;) {
            cv_.wait(lock, [this] { return job_ != nullptr; });
            (*job_)();
            job_ = nullptr;
            cv_.notify_all();
        }
    }

    std::mutex mu_;
    std::condition_variable cv_;
    const std::function<void()>* job_ = nullptr;
};

struct Harness {
    std::shared_ptr<KeepingHal> hal;
    std::vector<std::shared_ptr<ITorqCallback>> clients;  // proxies held by the HAL process
    std::unique_ptr<HalThread> halThread;
    size_t requestClients = 0;

    Harness() {
        __android_log_set_logger(quietLogger);
        const binder_host::ProcessId pid = binder_host::createProcess("hostile-hal");
        binder_host::declareInstance(kInstance);
        binder_host::runInProcess(pid, [this] {
            hal = ndk::SharedRefBase::make<KeepingHal>();
            FUZZ_CHECK(AServiceManager_addService(hal->asBinder().get(), kInstance) == EX_NONE,
                       "the HAL registers");
        });

        auto idCallback = std::make_shared<IdCallback>();
        auto pathCallback = std::make_shared<PathCallback>();
        std::list<ZelClient::Resource> resources{{0x010108A0, "1"}};
        FUZZ_CHECK(torqHalclient::torqResCtlRequest(-1, 100, resources, -1, 1, 0, idCallback) == 1,
                   "request with callback");
        FUZZ_CHECK(torqHalclient::torq_resctl_request_with_callback_by_path(
                           -1, 100, {"/p"}, {"1"}, -1, 1, 0, pathCallback) == 1,
                   "path request with callback");
        FUZZ_CHECK(torqHalclient::torqResListeningRegister(resources, 0, idCallback) == 1,
                   "listening registration");
        FUZZ_CHECK(torqHalclient::torq_res_listening_register_by_path({"/p"}, 0, pathCallback) == 1,
                   "path listening registration");
        clients = hal->callbacks();
        FUZZ_CHECK(clients.size() == 4, "the HAL holds the four callbacks");
        {
            std::lock_guard<std::mutex> lock(request_callback_mutex);
            requestClients = request_callbacks.size();
        }
        halThread = std::make_unique<HalThread>(pid);
    }
};

Harness& harness() {
    static Harness* h = new Harness;  // lives as long as the binder threads that use it
    return *h;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    Harness& h = harness();
    const std::shared_ptr<ITorqCallback>& client = h.clients[data[0] % h.clients.size()];
    const uint8_t how = data[1];
    transaction_code_t code = FIRST_CALL_TRANSACTION;  // onCallback, most of the time
    switch (how & 0x7) {
        case 5:
            code = FIRST_CALL_TRANSACTION + 16777214;  // getInterfaceVersion
            break;
        case 6:
            code = FIRST_CALL_TRANSACTION + 16777213;  // getInterfaceHash
            break;
        case 7:
            code = FIRST_CALL_TRANSACTION + (how >> 3);  // methods that do not exist
            break;
        default:
            break;
    }
    const binder_flags_t flags = (how & 0x40) != 0 ? FLAG_ONEWAY : 0;
    const bool withToken = (how & 0x80) == 0;

    std::function<void()> job = [&] {
        ndk::SpAIBinder binder = client->asBinder();
        AIBinder* target = binder.get();
        AParcel* in = nullptr;
        if (AIBinder_prepareTransaction(target, &in) != STATUS_OK) return;
        // Without the token the data starts where the token would be: the client must refuse it.
        if (!withToken) AParcel_setDataPosition(in, 0);
        AParcel* raw = AParcel_create();
        AParcel_unmarshal(raw, data + 2, size - 2);
        AParcel_appendFrom(raw, in, 0, static_cast<int32_t>(size - 2));
        AParcel_delete(raw);
        AParcel* out = nullptr;
        AIBinder_transact(target, code, &in, &out, flags);
        if (out != nullptr) AParcel_delete(out);
        // A oneway call is served later: wait for it, so that a crash belongs to this input.
        if (flags & FLAG_ONEWAY) binder_host::drain();
    };
    h.halThread->run(job);

    std::lock_guard<std::mutex> lock(request_callback_mutex);
    FUZZ_CHECK(request_callbacks.size() <= h.requestClients,
               "a callback put a client back into request_callbacks");
    return 0;
}
