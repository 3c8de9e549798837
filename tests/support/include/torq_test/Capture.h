#pragma once

// Captures what the library writes to the Android log and to the trace.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace torq_test {

struct LogLine {
    int priority = 0;     // ANDROID_LOG_*
    bool hasTag = false;  // false when the line was written with a null tag
    std::string tag;
    std::string text;
    bool operator==(const LogLine& o) const {
        return priority == o.priority && hasTag == o.hasTag && tag == o.tag && text == o.text;
    }
};

/** Shows a line in a failed comparison. */
inline void PrintTo(const LogLine& l, std::ostream* os) {
    *os << "{prio " << l.priority << ", " << (l.hasTag ? l.tag : "<no tag>") << ", \"" << l.text
        << "\"}";
}

// While alive, every line written through liblog in this process (any emulated process; they all
// share the address space) is recorded, at every priority, and not printed. Only one at a time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    std::vector<LogLine> lines() const;
    std::vector<LogLine> linesWithTag(const std::string& tag) const;
    void clear();
};

struct TraceEvent {
    enum Kind { kBegin, kEnd } kind;
    std::string name;  // empty for kEnd
};

// While alive, atrace_begin_body/atrace_end_body calls are recorded and the enabled tags are
// ATRACE_TAG_ALWAYS alone until setEnabledTags.
class TraceCapture {
  public:
    TraceCapture();
    ~TraceCapture();
    void setEnabledTags(uint64_t tags);
    std::vector<TraceEvent> events() const;
    void clear();
};

}  // namespace torq_test
