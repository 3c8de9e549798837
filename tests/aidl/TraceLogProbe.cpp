// A shared library that traces and logs the way the client library does, so the tests can check
// that the captures see calls made from inside another shared object.

#define ATRACE_TAG ATRACE_TAG_ALWAYS
#include <android/log.h>
#include <cutils/trace.h>

extern "C" {

// cutils/trace.h declares these only inside its inline helpers.
void atrace_begin_body(const char* name);
void atrace_end_body();

void probe_trace_section(const char* name) {
    if (atrace_get_enabled_tags() & ATRACE_TAG_ALWAYS) {
        atrace_begin_body(name);
        atrace_end_body();
    }
}

void probe_atrace(uint64_t tag, const char* name) {
    atrace_begin(tag, name);
    atrace_end(tag);
}

void probe_log(int priority, const char* tag, const char* text) {
    __android_log_print(priority, tag, "%s", text);
}

}  // extern "C"
