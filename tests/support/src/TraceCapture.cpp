// Trace capture on the host, whose libcutils has tracing compiled out. The executable's own
// atrace_get_enabled_tags/atrace_begin_body/atrace_end_body interpose libcutils' for every shared
// library (called through the PLT; the host header, built with ATRACE_SHMEM, reads the tags only
// through the function). While no capture is alive they report no tags and record nothing.
// They live in the object of TraceCapture's constructor, so that a test creating a capture pulls
// them out of the static library; torq_test_support makes the executable export them.

#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>

#include <atomic>
#include <mutex>

namespace torq_test {

namespace {

std::mutex g_mutex;
std::atomic<bool> g_active{false};
std::atomic<uint64_t> g_tags{0};
std::vector<std::string> g_events;

}  // namespace

TraceCapture::TraceCapture() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active) ADD_FAILURE() << "only one TraceCapture may be alive at a time";
    g_events.clear();
    g_tags = ATRACE_TAG_ALWAYS;
    g_active = true;
}

TraceCapture::~TraceCapture() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_active = false;
    g_tags = 0;
    g_events.clear();
}

void TraceCapture::setEnabledTags(uint64_t tags) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_tags = tags;
}

std::vector<std::string> TraceCapture::events() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_events;
}

void TraceCapture::clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_events.clear();
}

}  // namespace torq_test

using torq_test::g_active;
using torq_test::g_events;
using torq_test::g_mutex;
using torq_test::g_tags;

extern "C" {

uint64_t atrace_get_enabled_tags() {
    return g_tags;  // 0 while no capture is alive
}

void atrace_begin_body(const char* name) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active) g_events.push_back(name != nullptr ? name : "");
}

void atrace_end_body() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active) g_events.push_back("end");
}

}  // extern "C"
