// HOST ONLY: Debian's liblog (the pre-release API with __android_logger_data). The device's
// liblog passes an __android_log_message instead; see device/DeviceLogHook.cpp.

#include <android/log.h>

#include <mutex>
#include <utility>

#include "LogHook.h"

namespace torqctl {

namespace {

std::mutex gSinkMutex;
std::function<void(const LogLine&)>* gSink = nullptr;

void logger(const struct __android_logger_data* data, const char* message) {
    LogLine line;
    line.priority = data->priority;
    line.tag = data->tag != nullptr ? data->tag : "";
    line.message = message != nullptr ? message : "";
    std::lock_guard<std::mutex> lock(gSinkMutex);
    if (gSink != nullptr) (*gSink)(line);
}

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        // Kept for the life of the process: binder threads may log until the very end.
        static std::function<void(const LogLine&)> storage;
        storage = std::move(sink);
        gSink = &storage;
    }
    __android_log_set_logger(logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace torqctl
