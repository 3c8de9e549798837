// Log and trace capture, seen from a shared library that logs and traces like the client library.

#include <android/log.h>
#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>

#include <thread>

#include "TraceLogProbe.h"

namespace {

using torq_test::LogCapture;
using torq_test::LogLine;
using torq_test::TraceCapture;
using torq_test::TraceEvent;

TEST(LogCaptureTest, RecordsEveryPriorityTagAndNullTag) {
    LogCapture capture;
    probe_log(ANDROID_LOG_INFO, "TORQFramework-lib-vendor", "torq client torq_init");
    probe_log(ANDROID_LOG_DEBUG, "[ZEL_CLIENT]", "debug line ");
    probe_log(ANDROID_LOG_VERBOSE, "[ZEL_CLIENT]", "verbose line");
    probe_log(ANDROID_LOG_ERROR, nullptr, "no tag");
    probe_log(ANDROID_LOG_INFO, "", "empty tag");

    std::vector<LogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], (LogLine{ANDROID_LOG_INFO, true, "TORQFramework-lib-vendor",
                                 "torq client torq_init"}));
    EXPECT_EQ(lines[1], (LogLine{ANDROID_LOG_DEBUG, true, "[ZEL_CLIENT]", "debug line "}));
    EXPECT_EQ(lines[2].priority, ANDROID_LOG_VERBOSE);
    EXPECT_EQ(lines[3], (LogLine{ANDROID_LOG_ERROR, false, "", "no tag"}));
    EXPECT_EQ(lines[4], (LogLine{ANDROID_LOG_INFO, true, "", "empty tag"}));

    EXPECT_EQ(capture.linesWithTag("[ZEL_CLIENT]").size(), 2u);
    EXPECT_TRUE(capture.contains("no tag"));
    EXPECT_FALSE(capture.contains("no"));  // whole lines only
    EXPECT_EQ(capture.count("debug line "), 1u);
    EXPECT_EQ(capture.count("debug line"), 0u);
    capture.clear();
    EXPECT_TRUE(capture.lines().empty());
}

TEST(LogCaptureTest, WaitForSeesLinesFromOtherThreads) {
    LogCapture capture;
    EXPECT_FALSE(capture.waitFor("late", 20));
    std::thread writer([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        probe_log(ANDROID_LOG_INFO, "T", "late");
    });
    EXPECT_TRUE(capture.waitFor("late"));
    writer.join();
}

TEST(LogCaptureTest, RestoresTheDefaultsAfterwards) {
    int minimum = __android_log_get_minimum_priority();
    { LogCapture capture; }
    EXPECT_EQ(__android_log_get_minimum_priority(), minimum);
    // A new capture starts empty and still sees lines.
    LogCapture capture;
    EXPECT_TRUE(capture.lines().empty());
    probe_log(ANDROID_LOG_WARN, "T", "again");
    EXPECT_TRUE(capture.contains("again"));
}

TEST(TraceCaptureTest, SeesSectionsOfASharedLibrary) {
    TraceCapture capture;  // ATRACE_TAG_ALWAYS only
    probe_trace_section("ZelEventAcquire");
    probe_atrace(ATRACE_TAG_ALWAYS, "second");
    probe_atrace(ATRACE_TAG_GRAPHICS, "not enabled");
    std::vector<TraceEvent> events = capture.events();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, TraceEvent::kBegin);
    EXPECT_EQ(events[0].name, "ZelEventAcquire");
    EXPECT_EQ(events[1].kind, TraceEvent::kEnd);
    EXPECT_EQ(events[1].name, "");
    EXPECT_EQ(events[2].name, "second");
    EXPECT_EQ(events[3].kind, TraceEvent::kEnd);

    capture.clear();
    capture.setEnabledTags(0);
    probe_trace_section("off");
    EXPECT_TRUE(capture.events().empty());
    capture.setEnabledTags(ATRACE_TAG_ALWAYS | ATRACE_TAG_GRAPHICS);
    probe_atrace(ATRACE_TAG_GRAPHICS, "graphics");
    ASSERT_EQ(capture.events().size(), 2u);
    EXPECT_EQ(capture.events()[0].name, "graphics");
}

TEST(TraceCaptureTest, OutsideACaptureTracingIsOffAsOnTheHost) {
    { TraceCapture capture(ATRACE_TAG_ALWAYS); }
    EXPECT_EQ(atrace_get_enabled_tags() & ATRACE_TAG_ALWAYS, 0u);
    probe_trace_section("nobody listens");
    TraceCapture capture;
    EXPECT_TRUE(capture.events().empty());
}

}  // namespace
