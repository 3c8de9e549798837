// The simulator as a stand-alone Torq HAL service, for bring-up on a device without the real
// HAL: registers "vendor.quarn.hardware.torq.ITorq/default" and serves it from the binder
// thread pool. Dump commands print to the Android log (tag "torq-sim").

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "torq_sim/SimTorq.h"

namespace {

constexpr char kLogTag[] = "torq-sim";
constexpr int64_t kMaxTimerSleepMs = 20;

// Expires timed requests as their time runs out, so listeners hear of the fallback.
void runTimer(std::shared_ptr<torq_sim::SimTorq> hal) {
    for (;;) {
        hal->tick();
        int64_t sleepMs = kMaxTimerSleepMs;
        if (auto deadline = hal->nextDeadline()) {
            sleepMs = std::max<int64_t>(1, std::min(sleepMs, *deadline - hal->now()));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(sleepMs));
    }
}

}  // namespace

int main() {
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    auto hal = ::ndk::SharedRefBase::make<torq_sim::SimTorq>();
    const binder_status_t status =
            AServiceManager_addService(hal->asBinder().get(), torq_sim::kTorqInstance);
    if (status != STATUS_OK) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "cannot register %s: %d",
                            torq_sim::kTorqInstance, status);
        return 1;
    }
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "%s registered", torq_sim::kTorqInstance);
    std::thread(runTimer, hal).detach();
    ABinderProcess_joinThreadPool();
    return 1;  // joinThreadPool does not return
}
