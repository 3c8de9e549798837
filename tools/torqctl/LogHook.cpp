#include "LogHook.h"

#include <android/log.h>

#include <mutex>
#include <utility>

namespace torqctl {

namespace {

std::mutex gSinkMutex;
std::function<void(const LogLine&)>* gSink = nullptr;

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        // Kept for the life of the process: binder threads may log until the very end.
        static std::function<void(const LogLine&)> storage;
        storage = std::move(sink);
        gSink = &storage;
    }
    installPlatformLogger();
}

void deliverLog(int priority, const char* tag, const char* message) {
    const LogLine line{priority, tag != nullptr ? tag : "", message != nullptr ? message : ""};
    std::lock_guard<std::mutex> lock(gSinkMutex);
    if (gSink != nullptr) (*gSink)(line);
}

const char* priorityLetter(int priority) {
    static const char* const kLetters[] = {"V", "D", "I", "W", "E", "F"};
    const bool known = priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL;
    return known ? kLetters[priority - ANDROID_LOG_VERBOSE] : "?";
}

}  // namespace torqctl
