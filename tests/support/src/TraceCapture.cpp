// Trace capture on the host, whose libcutils has tracing compiled out. The executable's own
// atrace_get_enabled_tags/atrace_begin_body/atrace_end_body interpose libcutils' for every shared
// library (torq_test_support makes the executable export them). They live in the object of
// TraceCapture's constructor, so that only a test creating a capture pulls them in; while no
// capture is alive they report no tags and record nothing.

#include <cutils/trace.h>
#include <torq_test/Capture.h>

#include <cstdint>
#include <mutex>

namespace {

std::mutex g_mutex;
bool g_active = false;
std::vector<std::string> g_events;

void record(std::string event) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active) g_events.push_back(std::move(event));
}

void reset(bool active) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_active = active;
    g_events.clear();
}

}  // namespace

namespace torq_test {

TraceCapture::TraceCapture() {
    reset(true);
}

TraceCapture::~TraceCapture() {
    reset(false);
}

std::vector<std::string> TraceCapture::events() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_events;
}

}  // namespace torq_test

extern "C" {

uint64_t atrace_get_enabled_tags() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_active ? ATRACE_TAG_ALWAYS : 0;
}

void atrace_begin_body(const char* name) {
    record(name != nullptr ? name : "");
}

void atrace_end_body() {
    record("end");
}

}  // extern "C"
