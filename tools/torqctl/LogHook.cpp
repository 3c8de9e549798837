#include "LogHook.h"

#include <android/log.h>

#include <mutex>
#include <utility>

namespace torqctl {

namespace {

std::mutex gSinkMutex;
// Never destroyed: binder threads may log until the very end.
auto* const gSink = new std::function<void(const LogLine&)>();

void deliver(int priority, const char* tag, const char* message) {
    const LogLine line{priority, tag != nullptr ? tag : "", message != nullptr ? message : ""};
    std::lock_guard<std::mutex> lock(gSinkMutex);
    if (*gSink) (*gSink)(line);
}

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        *gSink = std::move(sink);
    }
#ifdef __ANDROID__
    // The device's liblog (API 30 and later) passes an __android_log_message.
    __android_log_set_logger([](const struct __android_log_message* message) {
        deliver(message->priority, message->tag, message->message);
        // Still send it to logcat, as the platform's logger would.
        __android_log_logd_logger(message);
    });
#else
    // Debian's liblog on a host: the pre-release API, with __android_logger_data.
    __android_log_set_logger([](const struct __android_logger_data* data, const char* message) {
        deliver(data->priority, data->tag, message);
    });
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
#endif
}

}  // namespace torqctl
