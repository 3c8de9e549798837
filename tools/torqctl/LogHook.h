#pragma once

// Routes every line written through liblog in this process to `sink` instead of the platform's
// default (which on a host prints to stderr). Installed once, at start-up.

#include <functional>
#include <string>

namespace torqctl {

struct LogLine {
    int priority = 0;  // ANDROID_LOG_*
    std::string tag;   // empty when written without a tag
    std::string message;
};

void installLogHook(std::function<void(const LogLine&)> sink);

}  // namespace torqctl
