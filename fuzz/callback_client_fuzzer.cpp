// A hostile HAL sends raw transactions, from its own emulated process, to the callback binders the
// library handed it with two requests, by id and by path. The client must not crash, must hand
// its callers only well-formed results, must let go of a request client once that has answered
// its caller, and must never take one back into request_callbacks.
//
// Input: byte 0 picks the client, byte 1 the transaction (code, oneway flag, whether the
// interface token is written first), the rest is the request's data.

#include <android/binder_ibinder.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <torqHalclient.h>
#include <torq_sim/SimHost.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "FuzzCheck.h"

namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;

// A caller of either kind; counts the results that reached it.
class Caller : public IClientCallback, public IClientCallbackByPath {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        for (const ZelClient::Resource& r : resources) {
            FUZZ_CHECK(r.value.has_value(), "a resource reached the caller without a value");
        }
        ++results;
    }
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        FUZZ_CHECK(values.size() == paths.size(), "values and paths differ in number");
        ++results;
    }

    std::atomic<int> results{0};
};

void quietLogger(const __android_logger_data*, const char*) {}

torq_sim::SimHost::Options keepingHal() {
    torq_sim::SimHost::Options options;
    options.modelCallbacks = false;  // keeps every callback, calls none back on its own
    return options;
}

// A thread of the HAL process that runs one job at a time for the fuzzer's thread. It lives as
// long as the fuzzer: with a new thread for every input, LeakSanitizer now and then reported the
// request's buffer as leaked, which the same input run alone never did, and the target ran a
// third as fast.
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
    torq_sim::SimHost hal{keepingHal()};
    std::shared_ptr<Caller> requester = std::make_shared<Caller>();
    std::shared_ptr<Caller> pathRequester = std::make_shared<Caller>();
    std::vector<std::shared_ptr<ITorqCallback>> clients;  // proxies held by the HAL process
    std::unique_ptr<HalThread> halThread;

    Harness() {
        __android_log_set_logger(quietLogger);
        FUZZ_CHECK(hal.start(), "the HAL starts");
        using namespace torqHalclient;
        std::list<ZelClient::Resource> resources{{0x010108A0, "1"}};
        FUZZ_CHECK(torqResCtlRequest(-1, 100, resources, -1, 1, 0, requester) > 0, "request");
        FUZZ_CHECK(torq_resctl_request_with_callback_by_path(-1, 100, {"/p"}, {"1"}, -1, 1, 0,
                                                             pathRequester) > 0,
                   "path request");
        clients = hal.hal()->heldCallbacks();
        FUZZ_CHECK(clients.size() == 2, "the HAL holds both callbacks");
        halThread = std::make_unique<HalThread>(hal.pid());
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    static Harness* h = new Harness;  // lives as long as the binder threads that use it
    const std::shared_ptr<ITorqCallback>& client = h->clients[data[0] % h->clients.size()];
    const uint8_t how = data[1];
    transaction_code_t code = FIRST_CALL_TRANSACTION;                // onCallback, most of the time
    if ((how & 0x7) == 5) code = FIRST_CALL_TRANSACTION + 16777214;  // getInterfaceVersion
    if ((how & 0x7) == 6) code = FIRST_CALL_TRANSACTION + 16777213;  // getInterfaceHash
    if ((how & 0x7) == 7) code += how >> 3;  // onCallback again, or methods that do not exist
    const binder_flags_t flags = (how & 0x40) != 0 ? FLAG_ONEWAY : 0;

    const std::function<void()> job = [&] {
        const ndk::SpAIBinder binder = client->asBinder();
        AIBinder* target = binder.get();
        AParcel* in = nullptr;
        if (AIBinder_prepareTransaction(target, &in) != STATUS_OK) return;
        // Without the token the data starts where the token would be: the client must refuse it.
        if ((how & 0x80) != 0) AParcel_setDataPosition(in, 0);
        AParcel* raw = AParcel_create();
        AParcel_unmarshal(raw, data + 2, size - 2);
        AParcel_appendFrom(raw, in, 0, static_cast<int32_t>(size - 2));
        AParcel_delete(raw);
        AParcel* out = nullptr;
        AIBinder_transact(target, code, &in, &out, flags);
        if (out != nullptr) AParcel_delete(out);
    };
    h->halThread->run(job);
    // A oneway call is served later: wait for it, so that what it does belongs to this input.
    if (flags & FLAG_ONEWAY) binder_host::drain();

    // Only request clients whose caller has had no result yet may still be registered.
    const size_t unanswered = static_cast<size_t>(h->requester->results == 0) +
                              static_cast<size_t>(h->pathRequester->results == 0);
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    FUZZ_CHECK(request_callbacks.size() <= unanswered,
               "an answered request client is still registered, or one came back");
    return 0;
}
