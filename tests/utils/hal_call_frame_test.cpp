// The HAL call frame shared by the two front ends, driven through a test policy: which steps run,
// in which order, under which lock. The lock modes, the hooks' places and the line for an
// interface lost after connecting are only observable here; the front ends' tests cover the rest.

#include "../../utils/HalCallFrame.h"

#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "torq_test/Capture.h"

namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqDefault;
using halframe::HalCall;
using halframe::MaybeStatus;

constexpr char kTestTag[] = "frame-test";

std::shared_timed_mutex g_mutex;
std::shared_ptr<ITorq> g_hal;

// Logs `step`, and how another thread finds the interface lock when that is not as `expected`:
// "free", "shared" (it could share it) or "exclusive".
void noteStep(const std::string& step, const std::string& expected) {
    const std::string state = std::async(std::launch::async, [] {
                                  if (g_mutex.try_lock()) {
                                      g_mutex.unlock();
                                      return "free";
                                  }
                                  if (g_mutex.try_lock_shared()) {
                                      g_mutex.unlock_shared();
                                      return "shared";
                                  }
                                  return "exclusive";
                              }).get();
    const std::string text = state == expected ? step : step + " with the lock " + state;
    __android_log_print(ANDROID_LOG_INFO, kTestTag, "%s", text.c_str());
}

struct TestFront {
    static constexpr const char* kLogTag = kTestTag;
    static constexpr const char* kCallFailedFormat = "%s() failed";
    static std::shared_timed_mutex& mutex() { return g_mutex; }
    static ITorq* cachedHal() { return g_hal.get(); }
    // Connects, but the interface is gone again (a death) before the frame takes the lock.
    static bool connectHal() {
        noteStep("connect", "free");
        return true;
    }
    static void dropHal() {
        noteStep("drop", "free");
        std::unique_lock<std::shared_timed_mutex> lock(g_mutex);
        g_hal.reset();
    }
};

// Makes one framed call and checks what came of it: the result, the steps in the order they were
// noted, and whether an interface is left. `connected`: an interface is cached before the call,
// else connecting leaves none. `refuses`: the call refuses, else its status is not OK.
void expectCall(bool connected, bool refuses, HalCall expected,
                const std::vector<std::string>& steps, bool halKept) {
    SCOPED_TRACE(::testing::Message() << "connected " << connected << ", refuses " << refuses);
    auto hal = ndk::SharedRefBase::make<ITorqDefault>();
    g_hal = connected ? hal : nullptr;

    torq_test::LogCapture log;
    HalCall made = halframe::HalFrame<TestFront>::callHal(
            "step",
            [&](ITorq& called) -> MaybeStatus {
                // Held shared: a call waiting in the HAL must not hold back other callers.
                noteStep(&called == hal.get() ? "call" : "call of another interface", "shared");
                if (refuses) return std::nullopt;
                return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
            },
            "no interface",
            [&] {
                noteStep("check", "shared");
                return true;
            },
            [&] { noteStep("after", "free"); });

    EXPECT_EQ(made, expected);
    std::vector<std::string> texts;
    for (const torq_test::LogLine& line : log.linesWithTag(kTestTag)) texts.push_back(line.text);
    EXPECT_EQ(texts, steps);
    EXPECT_EQ(g_hal != nullptr, halKept);
    g_hal.reset();
}

TEST(HalCallFrame, RunsItsStepsInOrderUnderTheLock) {
    // The check still runs: it comes before the interface test.
    expectCall(false, false, HalCall::kNoHal, {"connect", "check", "no interface"}, false);
    expectCall(true, false, HalCall::kFailed, {"check", "call", "after", "step() failed", "drop"},
               false);
    expectCall(true, true, HalCall::kRefused, {"check", "call"}, true);
}

}  // namespace
