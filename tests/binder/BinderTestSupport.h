#pragma once

// Helpers for the binder runtime tests: a service class whose transactions run a std::function,
// and small wrappers around the transaction API.

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace binder_test {

using Handler =
        std::function<binder_status_t(AIBinder*, transaction_code_t, const AParcel*, AParcel*)>;

// The user data of a test binder. `destroyed` (if set) counts onDestroy calls.
struct Service {
    Handler handler;
    std::atomic<int>* destroyed = nullptr;
};

inline AIBinder_Class* serviceClass() {
    static AIBinder_Class* clazz = AIBinder_Class_define(
            "test.binder.IService", [](void* args) { return args; },
            [](void* userData) {
                auto* service = static_cast<Service*>(userData);
                if (service->destroyed != nullptr) service->destroyed->fetch_add(1);
                delete service;
            },
            [](AIBinder* binder, transaction_code_t code, const AParcel* in,
               AParcel* out) -> binder_status_t {
                auto* service = static_cast<Service*>(AIBinder_getUserData(binder));
                if (!service->handler) return STATUS_UNKNOWN_TRANSACTION;
                return service->handler(binder, code, in, out);
            });
    return clazz;
}

// A new local binder of the calling thread's process.
inline ndk::SpAIBinder makeBinder(Handler handler, std::atomic<int>* destroyed = nullptr) {
    return ndk::SpAIBinder(AIBinder_new(serviceClass(), new Service{std::move(handler), destroyed}));
}

// Creates a binder inside `pid` and registers it as `instance`; the registration is then the
// only reference.
inline void startService(binder_host::ProcessId pid, const std::string& instance, Handler handler) {
    ASSERT_TRUE(binder_host::runInProcess(pid, [&] {
        ndk::SpAIBinder binder = makeBinder(std::move(handler));
        ASSERT_EQ(EX_NONE, AServiceManager_addService(binder.get(), instance.c_str()));
    }));
}

// The calling process's handle for a registered service, associated with the test class.
inline ndk::SpAIBinder getService(const std::string& instance) {
    ndk::SpAIBinder binder(AServiceManager_checkService(instance.c_str()));
    if (binder.get() != nullptr) {
        EXPECT_TRUE(AIBinder_associateClass(binder.get(), serviceClass()));
    }
    return binder;
}

// One transaction: `write` fills the request, `read` (if the call succeeded) reads the reply.
inline binder_status_t call(const ndk::SpAIBinder& binder, transaction_code_t code,
                            const std::function<void(AParcel*)>& write = nullptr,
                            const std::function<void(const AParcel*)>& read = nullptr,
                            binder_flags_t flags = 0) {
    ndk::ScopedAParcel in;
    binder_status_t status = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (status != STATUS_OK) return status;
    if (write) write(in.get());
    ndk::ScopedAParcel out;
    status = AIBinder_transact(binder.get(), code, in.getR(), out.getR(), flags);
    if (status == STATUS_OK && read) read(out.get());
    return status;
}

// A one-shot event a test thread can wait on.
class Latch {
  public:
    void open() {
        std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mCv.notify_all();
    }
    bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCv.wait_for(lock, timeout, [this] { return mOpen; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCv;
    bool mOpen = false;
};

// Gives every test a fresh world and checks that it leaves no binder of the default process
// behind.
class BinderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        binder_host::reset();
        mBaseline = binder_host::liveBinderCount(binder_host::kDefaultProcess);
    }
    void TearDown() override {
        binder_host::reset();
        EXPECT_EQ(mBaseline, binder_host::liveBinderCount(binder_host::kDefaultProcess));
    }

    size_t mBaseline = 0;
};

}  // namespace binder_test
