// Log and trace capture, seen from a shared library that logs and traces like the client library.

#include <android/log.h>
#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>

#include <string>
#include <thread>
#include <vector>

// TraceLogProbe.cpp, a shared library of its own.
extern "C" {
void probe_trace_section(const char* name);  // the client library's pattern
void probe_atrace(uint64_t tag, const char* name);
void probe_log(int priority, const char* tag, const char* text);
}

namespace {

using torq_test::LogCapture;
using torq_test::LogLine;
using torq_test::TraceCapture;
using torq_test::TraceEvent;

TEST(LogCaptureTest, RecordsWholeLinesOfEveryPriorityAndTagUntilDestroyed) {
    const int minimum = __android_log_get_minimum_priority();
    {
        LogCapture capture;
        probe_log(ANDROID_LOG_INFO, "TORQFramework-lib-vendor", "torq client torq_init");
        probe_log(ANDROID_LOG_VERBOSE, "[ZEL_CLIENT]", "verbose line ");
        probe_log(ANDROID_LOG_ERROR, nullptr, "no tag");
        probe_log(ANDROID_LOG_INFO, "", "empty tag");
        EXPECT_EQ(capture.lines(),
                  (std::vector<LogLine>{
                          {ANDROID_LOG_INFO, true, "TORQFramework-lib-vendor",
                           "torq client torq_init"},
                          {ANDROID_LOG_VERBOSE, true, "[ZEL_CLIENT]", "verbose line "},
                          {ANDROID_LOG_ERROR, false, "", "no tag"},
                          {ANDROID_LOG_INFO, true, "", "empty tag"},
                  }));
        EXPECT_EQ(capture.linesWithTag("[ZEL_CLIENT]").size(), 1u);
        EXPECT_FALSE(capture.contains("no"));  // whole lines only
        EXPECT_EQ(capture.count("verbose line "), 1u);
        EXPECT_EQ(capture.count("verbose line"), 0u);
        capture.clear();
        EXPECT_TRUE(capture.lines().empty());

        EXPECT_FALSE(capture.waitFor("late", 20));
        std::thread writer([] { probe_log(ANDROID_LOG_INFO, "T", "late"); });
        EXPECT_TRUE(capture.waitFor("late"));
        writer.join();
    }
    EXPECT_EQ(__android_log_get_minimum_priority(), minimum);
    LogCapture again;  // starts empty and still sees lines
    EXPECT_TRUE(again.lines().empty());
    probe_log(ANDROID_LOG_WARN, "T", "again");
    EXPECT_TRUE(again.contains("again"));
}

// "B:name" for a begin, "E" for an end.
std::vector<std::string> describe(const std::vector<TraceEvent>& events) {
    std::vector<std::string> out;
    for (const TraceEvent& e : events) {
        out.push_back(e.kind == TraceEvent::kBegin ? "B:" + e.name : "E" + e.name);
    }
    return out;
}

TEST(TraceCaptureTest, SeesSectionsOfASharedLibraryWhileTheirTagIsEnabled) {
    {
        TraceCapture capture;  // ATRACE_TAG_ALWAYS only
        probe_trace_section("ZelEventAcquire");
        probe_atrace(ATRACE_TAG_ALWAYS, "second");
        probe_atrace(ATRACE_TAG_GRAPHICS, "not enabled");
        EXPECT_EQ(describe(capture.events()),
                  (std::vector<std::string>{"B:ZelEventAcquire", "E", "B:second", "E"}));

        capture.clear();
        capture.setEnabledTags(0);
        probe_trace_section("off");
        EXPECT_TRUE(capture.events().empty());
        capture.setEnabledTags(ATRACE_TAG_ALWAYS | ATRACE_TAG_GRAPHICS);
        probe_atrace(ATRACE_TAG_GRAPHICS, "graphics");
        EXPECT_EQ(describe(capture.events()), (std::vector<std::string>{"B:graphics", "E"}));
    }
    // Outside a capture tracing is off, as on a host without a trace daemon.
    EXPECT_EQ(atrace_get_enabled_tags() & ATRACE_TAG_ALWAYS, 0u);
    probe_trace_section("nobody listens");
    TraceCapture capture;
    EXPECT_TRUE(capture.events().empty());
}

}  // namespace
