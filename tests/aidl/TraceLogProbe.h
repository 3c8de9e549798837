#pragma once

#include <cstdint>

extern "C" {
// Begins and ends one section when ATRACE_TAG_ALWAYS is enabled (the client library's pattern).
void probe_trace_section(const char* name);
// atrace_begin/atrace_end of cutils/trace.h with the given tag.
void probe_atrace(uint64_t tag, const char* name);
void probe_log(int priority, const char* tag, const char* text);
}
