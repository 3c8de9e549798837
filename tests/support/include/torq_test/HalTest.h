#pragma once

// The fixture of the front-end tests: a clean emulated binder world, the reference HAL running in
// its own process, and every log line captured. Needs the simulator (link torq-sim).

#include <android/log.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Answers.h>
#include <torq_test/Capture.h>

#include <memory>
#include <string>
#include <vector>

namespace torq_test {

class HalTest : public ::testing::Test {
  protected:
    // The library's cached interfaces outlive a test. Killing the previous test's HAL fired their
    // death notices (reset drains), which cleared them, so every test starts disconnected.
    void SetUp() override {
        binder_host::reset();
        hal_ = std::make_unique<torq_sim::SimHost>(options());
        ASSERT_TRUE(hal_->start());
        log_.clear();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }
    virtual torq_sim::SimHost::Options options() const { return {}; }
    torq_sim::SimHost& hal() { return *hal_; }

    // The lines of one tag as "<level letter> <text>", e.g. "E Torq HAL Service died".
    std::vector<std::string> lines(const std::string& tag) const {
        std::vector<std::string> out;
        for (const LogLine& l : log_.linesWithTag(tag)) {
            const bool known = l.priority >= ANDROID_LOG_VERBOSE && l.priority <= ANDROID_LOG_FATAL;
            out.push_back((known ? "??VDIWEF"[l.priority] : '?') + (" " + l.text));
        }
        return out;
    }

    LogCapture log_;
    std::unique_ptr<torq_sim::SimHost> hal_;
};

}  // namespace torq_test
