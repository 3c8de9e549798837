// The HAL call frame shared by the two front ends, driven through a test policy: which steps run,
// in which order, under which lock. The front ends' own tests see only what the HAL received and
// what was logged, so they cover connecting, a failed connect, the failure rule and a check that
// refuses; the lock modes and the hooks' places (a check before the interface test, a step
// between release and failure rule, the line for an interface lost after connecting) are only
// observable here.

#include "../../utils/HalCallFrame.h"

#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "torq_test/Capture.h"

namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqDefault;
using halframe::HalCall;
using halframe::MaybeStatus;

constexpr char kTestTag[] = "frame-test";

void note(const std::string& text) {
    __android_log_print(ANDROID_LOG_INFO, kTestTag, "%s", text.c_str());
}

std::shared_timed_mutex g_mutex;
std::shared_ptr<ITorq> g_hal;

// How another thread finds the interface lock right now: "free", "shared" (it could share it) or
// "exclusive".
std::string lockState() {
    return std::async(std::launch::async,
                      [] {
                          if (g_mutex.try_lock()) {
                              g_mutex.unlock();
                              return "free";
                          }
                          if (g_mutex.try_lock_shared()) {
                              g_mutex.unlock_shared();
                              return "shared";
                          }
                          return "exclusive";
                      })
            .get();
}

// Notes `step`, and how the lock was held when that is not as `expected`.
void noteStep(const std::string& step, const std::string& expected) {
    const std::string state = lockState();
    note(state == expected ? step : step + " with the lock " + state);
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
        note("drop");
        std::unique_lock<std::shared_timed_mutex> lock(g_mutex);
        g_hal.reset();
    }
};

using Frame = halframe::HalFrame<TestFront>;

enum class Outcome { kOk, kNotOk, kRefuse };

struct Case {
    const char* name;
    bool connected;  // an interface is cached before the call, else connecting leaves none
    Outcome call;
    HalCall expected;
    std::vector<std::string> lines;
    bool halKept;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

class HalCallFrameTest : public ::testing::TestWithParam<Case> {};

TEST_P(HalCallFrameTest, RunsItsStepsInOrderUnderTheLock) {
    const Case& c = GetParam();
    auto hal = ndk::SharedRefBase::make<ITorqDefault>();
    g_hal = c.connected ? hal : nullptr;

    torq_test::LogCapture log;
    HalCall made = Frame::callHal(
            "step",
            [&](ITorq& called) -> MaybeStatus {
                // Held shared: a call waiting in the HAL must not hold back other callers.
                noteStep(&called == hal.get() ? "call" : "call of another interface", "shared");
                if (c.call == Outcome::kRefuse) return std::nullopt;
                return c.call == Outcome::kOk ? ndk::ScopedAStatus::ok()
                                              : ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
            },
            "no interface",
            [&] {
                noteStep("check", "shared");
                return true;
            },
            [&] { noteStep("after", "free"); });

    EXPECT_EQ(made, c.expected);
    std::vector<std::string> texts;
    for (const torq_test::LogLine& line : log.linesWithTag(kTestTag)) texts.push_back(line.text);
    EXPECT_EQ(texts, c.lines);
    EXPECT_EQ(g_hal != nullptr, c.halKept);
    EXPECT_EQ(lockState(), "free");
    g_hal.reset();
}

constexpr bool T = true, F = false;
constexpr Outcome kOk = Outcome::kOk, kNotOk = Outcome::kNotOk, kRefuse = Outcome::kRefuse;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Steps, HalCallFrameTest, ::testing::Values(
    //   name                         cached call     result
    // The check still runs: it comes before the interface test.
    Case{"InterfaceGoneAfterConnect", F,     kOk,     HalCall::kNoHal,
         {"connect", "check", "no interface"}, F},
    Case{"CallFails",                 T,     kNotOk,  HalCall::kFailed,
         {"check", "call", "after", "step() failed", "drop"}, F},
    Case{"CallRefuses",               T,     kRefuse, HalCall::kRefused,
         {"check", "call"}, T}),
    [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });
// clang-format on

}  // namespace
