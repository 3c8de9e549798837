#pragma once

// Captures what the library writes to the Android log.

#include <string>
#include <vector>

namespace torq_test {

struct LogLine {
    int priority = 0;  // ANDROID_LOG_*
    std::string tag;
    std::string text;
};

// While alive, every line written through liblog in this process (any emulated process; they all
// share the address space) is recorded, at every priority, and not printed. Only one at a time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    std::vector<LogLine> linesWithTag(const std::string& tag) const;
    void clear();
};

}  // namespace torq_test
