// Trace capture on the host, whose libcutils has tracing compiled out. The executable's own
// atrace_get_enabled_tags/atrace_begin_body/atrace_end_body interpose libcutils' for every shared
// library (torq_test_support makes the executable export them). They live in the object of
// TraceCapture's constructor, so that only a test creating a capture pulls them in; while no
// capture is alive they report no tags and record nothing.

#include <cutils/trace.h>
#include <torq_test/Capture.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace {

std::mutex g_mutex;
std::atomic<uint64_t> g_tags{0};
bool g_active = false;
std::vector<std::string> g_events;

void record(std::string event) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active) g_events.push_back(std::move(event));
}

}  // namespace

namespace torq_test {

TraceCapture::TraceCapture() {
    std::lock_guard<std::mutex> lock(g_mutex);
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

std::vector<std::string> TraceCapture::events() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_events;
}

void TraceCapture::clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_events.clear();
}

}  // namespace torq_test

extern "C" {

uint64_t atrace_get_enabled_tags() {
    return g_tags;
}

void atrace_begin_body(const char* name) {
    record(name != nullptr ? name : "");
}

void atrace_end_body() {
    record("end");
}

}  // extern "C"
