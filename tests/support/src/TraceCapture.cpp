// Trace capture on the host, whose libcutils has tracing compiled out. The executable's own
// atrace_get_enabled_tags/atrace_begin_body/atrace_end_body interpose libcutils' for every shared
// library (torq_test_support makes the executable export them). They live in the object of
// TraceCapture's constructor, so that only a test creating a capture pulls them in.

#include <cutils/trace.h>
#include <torq_test/Capture.h>

#include <atomic>
#include <cstdint>

namespace {

// The library traces on its callers' threads: the events are the test thread's own.
std::atomic<bool> g_active{false};
std::vector<std::string> g_events;

}  // namespace

torq_test::TraceCapture::TraceCapture() {
    g_events.clear();
    g_active = true;
}

torq_test::TraceCapture::~TraceCapture() {
    g_active = false;
}

std::vector<std::string> torq_test::TraceCapture::events() const {
    return g_events;
}

extern "C" {

uint64_t atrace_get_enabled_tags() {
    return g_active ? ATRACE_TAG_ALWAYS : 0;
}

void atrace_begin_body(const char* name) {
    if (g_active) g_events.push_back(name != nullptr ? name : "");
}

void atrace_end_body() {
    if (g_active) g_events.push_back("end");
}

}  // extern "C"
