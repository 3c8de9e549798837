// A program that ends while the binder runtime is busy: services in other emulated processes are
// killed and started again, death notices are being delivered, synchronous and oneway calls are
// in flight. ExitTest runs it many times and expects a clean exit status every time.
//
// Usage: binder_exit_helper return|exit DELAY_US
//   return  main returns (static destructors run while the runtime's threads still work)
//   exit    exit(0) from a thread other than main, in the middle of the work

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <binder_host/process.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

namespace {

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr const char* kInstance = "exit.svc";

// What the callbacks record, in static objects as a program's own state usually is: the static
// destructors tear them down while binder threads may still want to use them.
std::mutex gSeenMutex;
std::map<int, int> gSeen;

void record(int what) {
    std::lock_guard<std::mutex> lock(gSeenMutex);
    ++gSeen[what];
}

AIBinder_Class* serviceClass() {
    static AIBinder_Class* clazz = AIBinder_Class_define(
            "exit.IService", [](void* args) { return args; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
                int32_t value = 0;
                AParcel_readInt32(in, &value);
                record(value);
                return AParcel_writeInt32(out, value + 1);
            });
    return clazz;
}

void onDied(void*) {
    record(-1);
}

// A binder held by a static object, set before the other threads start: its last reference goes
// in the static destructors, while the runtime may still be delivering work to its process.
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
        AParcel* in = nullptr;
        if (AIBinder_prepareTransaction(svc.get(), &in) != STATUS_OK) continue;
        AParcel_writeInt32(in, 1);
        AParcel* out = nullptr;
        AIBinder_transact(svc.get(), kEcho, &in, &out, flags);
        AParcel_delete(out);
    }
}

binder_host::ProcessId startService() {
    const binder_host::ProcessId pid = binder_host::createProcess("hal", 2);
    binder_host::runInProcess(pid, [] {
        ndk::SpAIBinder binder(AIBinder_new(serviceClass(), nullptr));
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

}  // namespace

// ThreadSanitizer: the program ends at a random moment, so a thread may just have finished while
// the thread that joins it (runInProcess waits for its thread) has not got there yet. That is
// no leak; every other report still fails the run.
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const bool viaExit = std::strcmp(argv[1], "exit") == 0;
    const auto delay = std::chrono::microseconds(std::atoll(argv[2]));
    gRecipient = AIBinder_DeathRecipient_new(onDied);
    const binder_host::ProcessId first = startService();
    gFirstService.set(AServiceManager_checkService(kInstance));

    std::thread(callForever, 0).detach();
    std::thread(callForever, FLAG_ONEWAY).detach();
    std::thread(restartForever, first).detach();
    if (viaExit) {
        std::thread([delay] {
            std::this_thread::sleep_for(delay);
            std::exit(0);
        }).detach();
        for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    std::this_thread::sleep_for(delay);
    return 0;
}
