// Killing and restarting a service process many times under calls must not grow the program: the
// killed process's binder threads end and its memory comes back. A test suite that restarts a HAL
// thousands of times relies on it.

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include "BinderTestSupport.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define RESTART_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define RESTART_SANITIZED 1
#endif
#endif

#ifdef RESTART_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace {

using namespace binder_test;

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kCallMeBack = FIRST_CALL_TRANSACTION + 1;
constexpr const char* kInstance = "restart.svc";

// The sanitizers make every call several times slower; the growth limit below is per cycle
// sensitive enough with fewer of them.
#ifdef RESTART_SANITIZED
constexpr int kCycles = 2000;
#else
constexpr int kCycles = 10000;
#endif
constexpr int kWarmupCycles = 200;
// Allocator and container capacities settle during the warm-up, but a few free lists and caches
// still breathe. A leak of 8 bytes a cycle (a 32-byte chunk with glibc) is above it.
constexpr int64_t kMaxGrowthBytes = 48 * 1024;

// The number of this program's threads, once those that were joined have been reaped: a joined
// thread may stay listed for a moment.
size_t threadCount(size_t expected) {
    size_t count = 0;
    for (int i = 0; i < 200; ++i) {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        count = static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
        if (count <= expected) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return count;
}

int64_t heapBytes() {
#ifdef RESTART_SANITIZED
    return static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
#else
    const struct mallinfo2 info = mallinfo2();
    return static_cast<int64_t>(info.uordblks + info.hblkhd);
#endif
}

// The service: echoes, and on kCallMeBack calls the client's binder from the request once.
binder_status_t serve(AIBinder*, transaction_code_t code, const AParcel* in, AParcel* out) {
    if (code != kCallMeBack) return AParcel_writeInt32(out, 1);
    ndk::SpAIBinder callback;
    binder_status_t status = ndk::AParcel_readData(in, &callback);
    if (status != STATUS_OK || callback.get() == nullptr) return STATUS_BAD_VALUE;
    AIBinder_associateClass(callback.get(), serviceClass());
    return call(callback, kEcho);
}

// Sends the service a callback whose only reference on this side goes while the service calls
// it: it is destroyed on a binder thread of this process once the service lets go.
binder_status_t callWithSelfReleasingCallback(const ndk::SpAIBinder& svc,
                                              std::atomic<int>* callbacks) {
    auto* holder = new ndk::SpAIBinder;
    *holder =
            makeBinder([holder, callbacks](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                callbacks->fetch_add(1);
                delete holder;
                return STATUS_OK;
            });
    return call(svc, kCallMeBack, [holder](AParcel* in) { ndk::AParcel_writeData(in, *holder); });
}

// One cycle: a new service process, calls of every kind (with a callback that lets go of itself
// while it runs), a death link, then the kill, while a second thread keeps calling whatever
// service is up. A service that lives through all cycles gets such a callback each cycle too:
// what one leaves behind there is not cleaned up by a kill.
class RestartTest : public BinderTest {};

TEST_F(RestartTest, KilledProcessesGiveBackTheirThreadsAndMemory) {
    // One binder thread each for the living service and for this process (death notices), so
    // that the thread count does not depend on how calls happen to overlap.
    const binder_host::ProcessId living = binder_host::createProcess("living", 1);
    startService(living, "living.svc", serve);
    ndk::SpAIBinder livingSvc = getService("living.svc");
    ASSERT_TRUE(ABinderProcess_setThreadPoolMaxThreadCount(1));
    std::atomic<int> deaths{0};
    std::atomic<int> callbacks{0};
    std::atomic<bool> stop{false};
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(
            [](void* cookie) { static_cast<std::atomic<int>*>(cookie)->fetch_add(1); }));

    std::thread caller([&] {
        while (!stop.load()) {
            ndk::SpAIBinder svc(AServiceManager_checkService(kInstance));
            if (svc.get() == nullptr || !AIBinder_associateClass(svc.get(), serviceClass())) {
                std::this_thread::yield();
                continue;
            }
            for (int i = 0; i < 2; ++i) {
                const binder_flags_t flags = i == 0 ? 0 : FLAG_ONEWAY;
                const binder_status_t status = call(svc, kEcho, nullptr, nullptr, flags);
                if (status != STATUS_OK && status != STATUS_DEAD_OBJECT) {
                    ADD_FAILURE() << "call failed with " << status;
                    stop = true;
                }
            }
        }
    });

    size_t threadsAtStart = 0;
    int64_t heapAtStart = 0;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        if (cycle == kWarmupCycles) {
            ASSERT_TRUE(binder_host::drain());
            threadsAtStart = threadCount(0);
            heapAtStart = heapBytes();
        }
        const binder_host::ProcessId pid = binder_host::createProcess("hal", 2);
        startService(pid, kInstance, serve);
        // A link goes with the proxy it was made through: keep it until the notice came.
        ndk::SpAIBinder svc = getService(kInstance);
        ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &deaths));
        ASSERT_EQ(STATUS_OK, call(svc, kEcho));
        ASSERT_EQ(STATUS_OK, call(svc, kEcho, nullptr, nullptr, FLAG_ONEWAY));
        ASSERT_EQ(STATUS_OK, callWithSelfReleasingCallback(svc, &callbacks));
        ASSERT_EQ(STATUS_OK, callWithSelfReleasingCallback(livingSvc, &callbacks));
        binder_host::killProcess(pid);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (deaths.load() <= cycle && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        ASSERT_EQ(cycle + 1, deaths.load());
    }
    stop = true;
    caller.join();
    ASSERT_TRUE(binder_host::drain());
    const size_t threadsExpected = threadsAtStart - 1;  // the caller has ended

    EXPECT_EQ(2 * kCycles, callbacks.load());
    EXPECT_EQ(mBaseline, binder_host::liveBinderCount(binder_host::kDefaultProcess));
    EXPECT_EQ(threadsExpected, threadCount(threadsExpected))
            << "threads of killed processes are still there";
    const int64_t growth = heapBytes() - heapAtStart;
    EXPECT_LT(growth, kMaxGrowthBytes)
            << "heap grew by " << growth << " bytes over " << kCycles - kWarmupCycles << " cycles";
}

}  // namespace
