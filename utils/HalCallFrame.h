#pragma once

// The frame every call into the Torq HAL follows, written once for both front ends (torqHalclient
// and the flat API). Not exported.
//
//   connect when there is no interface, take the interface lock shared, give up when the interface
//   is empty, make the one ITorq call, release the lock, then the failure rule: a call whose status
//   is not OK logs "<step>() failed..." and drops the cached interface, so that the next call
//   connects again.
//
// A call's body then holds only what is its own: its log lines, its step name, the parcel it
// builds and what it makes of the answer. Each front end keeps its own connection, lock and
// wording and describes them in a small policy (`Front`):
//
//   static constexpr char kLogTag[];            the Android log tag
//   static constexpr char kCallFailedFormat[];  the failure rule's line, "%s" is the step name
//   static std::shared_timed_mutex& mutex();    guards the cached interface
//   static ITorq* cachedHal();                  the cached interface; read with mutex() held
//   static bool connectHal();                   connects if needed, mutex() not held; false when
//                                               the connect step failed (and logged why)
//   static void dropHal();                      clears the cached interface, mutex() not held
//
// Everything is inline templates: a framed call compiles to the same code as one written out.

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_auto_utils.h>
#include <android/log.h>

#include <mutex>
#include <optional>
#include <shared_mutex>
#include <type_traits>
#include <utility>

namespace halframe {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using HalSharedLock = std::shared_lock<std::shared_timed_mutex>;
// What a framed call that may refuse returns: its status, or nothing when it refused.
using MaybeStatus = std::optional<ndk::ScopedAStatus>;

// How a framed call ended. The caller's result keeps its pre-set failure value unless the HAL
// wrote it, so most calls only look at this to pick their own log lines.
enum class HalCall {
    kNoHal,    // no interface: connect failed or it was gone once the lock was taken
    kRefused,  // the call's own check turned it down; nothing was sent
    kFailed,   // sent, status not OK; the interface was dropped
    kOk,       // sent, status OK
};

// Default hooks: no check before the interface test, nothing between release and failure rule.
struct Proceed {
    bool operator()() const { return true; }
};
struct NothingAfter {
    void operator()() const {}
};

template <typename Front>
struct HalFrame {
    // Takes the lock shared, connecting first when there is no interface. True with the lock
    // held; the interface may still be empty then (a death can come between connect and lock),
    // so callers test it under the lock. False, lock not held, when the connect step failed.
    static bool lockHal(HalSharedLock& lock) {
        lock.lock();
        if (Front::cachedHal() != nullptr) return true;
        lock.unlock();
        if (!Front::connectHal()) return false;
        lock.lock();
        return true;
    }

    // The failure rule, applied after the shared lock was released. True when the call was OK.
    static bool halCallSucceeded(const ndk::ScopedAStatus& status, const char* step) {
        if (status.isOk()) return true;
        __android_log_print(ANDROID_LOG_ERROR, Front::kLogTag, Front::kCallFailedFormat, step);
        Front::dropHal();
        return false;
    }

    // The whole frame around `call(ITorq&)`, which runs under the shared lock and makes the one
    // ITorq call; it returns that call's status, or an empty optional to refuse (nothing sent,
    // no failure rule; it logs its own reason).
    //
    // Hooks for the calls whose frame has one more step, in the order they run:
    //   check()      under the lock, before the interface test; false refuses the call
    //   noHalLine    logged at ERROR when the interface is empty under the lock (nullptr: none)
    //   after()      after the lock release, before the failure rule; only when the call was made
    template <typename Call, typename Check = Proceed, typename After = NothingAfter>
    static HalCall callHal(const char* step, Call&& call, const char* noHalLine = nullptr,
                           Check&& check = Check(), After&& after = After()) {
        HalSharedLock lock(Front::mutex(), std::defer_lock);
        if (!lockHal(lock)) return HalCall::kNoHal;
        if (!check()) return HalCall::kRefused;
        ITorq* hal = Front::cachedHal();
        if (hal == nullptr) {
            if (noHalLine != nullptr) {
                __android_log_print(ANDROID_LOG_ERROR, Front::kLogTag, "%s", noHalLine);
            }
            return HalCall::kNoHal;
        }
        auto made = call(*hal);
        lock.unlock();
        if constexpr (std::is_same_v<decltype(made), ndk::ScopedAStatus>) {
            after();
            return halCallSucceeded(made, step) ? HalCall::kOk : HalCall::kFailed;
        } else {
            static_assert(std::is_same_v<decltype(made), MaybeStatus>,
                          "a framed call returns its status, or an optional one to refuse");
            if (!made.has_value()) return HalCall::kRefused;
            after();
            return halCallSucceeded(*made, step) ? HalCall::kOk : HalCall::kFailed;
        }
    }
};

}  // namespace halframe
