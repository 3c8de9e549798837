// A program using the runtime may end at any moment, also while the runtime is busy, and must then
// exit cleanly: no abort, no crash, no sanitizer report, no hang. Each death test below is such a
// program: a service in another process restarts, death notices and calls are in flight, and then
// it ends.

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "BinderTestSupport.h"

namespace {

using binder_test::call;
using binder_test::serviceClass;

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr const char* kInstance = "exit.svc";

// What the callbacks record, in static objects as a program's own state usually is: the static
// destructors tear them down while binder threads may still use them.
std::mutex gSeenMutex;
std::map<int, int> gSeen;

void record(int what) {
    std::lock_guard<std::mutex> lock(gSeenMutex);
    ++gSeen[what];
}

binder_status_t echo(AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) {
    int32_t value = 0;
    AParcel_readInt32(in, &value);
    record(value);
    return AParcel_writeInt32(out, value + 1);
}

// Its last reference goes in the static destructors, while the runtime may still deliver work.
ndk::SpAIBinder gFirstService;
// Used by the restart thread until the very end, so never deleted.
AIBinder_DeathRecipient* gRecipient = nullptr;

void callForever(binder_flags_t flags) {
    for (;;) {
        ndk::SpAIBinder svc(AServiceManager_checkService(kInstance));
        if (svc.get() == nullptr || !AIBinder_associateClass(svc.get(), serviceClass())) {
            std::this_thread::yield();
            continue;
        }
        call(
                svc, kEcho, [](AParcel* in) { AParcel_writeInt32(in, 1); }, nullptr, flags);
    }
}

binder_host::ProcessId startService() {
    const binder_host::ProcessId pid = binder_host::createProcess("hal", 2);
    binder_host::runInProcess(pid, [] {
        ndk::SpAIBinder binder = binder_test::makeBinder(echo);
        if (AServiceManager_addService(binder.get(), kInstance) != EX_NONE) std::abort();
    });
    return pid;
}

void restartForever(binder_host::ProcessId pid) {
    for (;;) {
        ndk::SpAIBinder svc(AServiceManager_checkService(kInstance));
        if (svc.get() != nullptr) {
            for (int i = 0; i < 4; ++i) AIBinder_linkToDeath(svc.get(), gRecipient, nullptr);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        binder_host::killProcess(pid);
        pid = startService();
    }
}

// Starts the work and ends the program after `delay` by exit(0), from the main thread or from
// another one.
[[noreturn]] void endWhileBusy(bool fromOtherThread, std::chrono::microseconds delay) {
    alarm(30);  // a program stuck in its exit is no cleaner than one that aborts
    gRecipient = AIBinder_DeathRecipient_new([](void*) { record(-1); });
    const binder_host::ProcessId first = startService();
    gFirstService.set(AServiceManager_checkService(kInstance));
    std::thread(callForever, 0).detach();
    std::thread(callForever, FLAG_ONEWAY).detach();
    std::thread(restartForever, first).detach();
    if (fromOtherThread) {
        std::thread([delay] {
            std::this_thread::sleep_for(delay);
            std::exit(0);
        }).detach();
        for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    std::this_thread::sleep_for(delay);
    std::exit(0);
}

TEST(ExitDeathTest, EndingWhileCallsAndDeathNoticesAreInFlightExitsCleanly) {
    // Each program starts afresh (re-executed), with nothing of the runtime in use yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // From threads barely started to hundreds of restarts, calls and notices under way.
    for (int round = 0; round < 40; ++round) {
        const auto delay = std::chrono::microseconds((round * 7919) % 5000);
        for (bool fromOtherThread : {false, true}) {
            SCOPED_TRACE(std::to_string(delay.count()) +
                         " us, other thread: " + std::to_string(fromOtherThread));
            EXPECT_EXIT(endWhileBusy(fromOtherThread, delay), ::testing::ExitedWithCode(0), "");
        }
    }
}

}  // namespace

// ThreadSanitizer: the program ends at a random moment, so a thread may just have finished while
// the thread that joins it (runInProcess waits for its thread) has not got there yet. That is
// no leak; every other report still fails the run.
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}
