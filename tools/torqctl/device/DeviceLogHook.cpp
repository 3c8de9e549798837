// Device liblog (API 30 and later): the logger receives an __android_log_message.

#include <android/log.h>

#include <mutex>
#include <utility>

#include "LogHook.h"

namespace torqctl {

namespace {

std::mutex gSinkMutex;
std::function<void(const LogLine&)>* gSink = nullptr;

void logger(const struct __android_log_message* message) {
    LogLine line;
    line.priority = message->priority;
    line.tag = message->tag != nullptr ? message->tag : "";
    line.message = message->message != nullptr ? message->message : "";
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        if (gSink != nullptr) (*gSink)(line);
    }
    // Still send it to logcat, as the platform's logger would.
    __android_log_logd_logger(message);
}

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        static std::function<void(const LogLine&)> storage;
        storage = std::move(sink);
        gSink = &storage;
    }
    __android_log_set_logger(logger);
}

}  // namespace torqctl
