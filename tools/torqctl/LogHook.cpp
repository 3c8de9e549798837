#include "LogHook.h"

#include <mutex>
#include <utility>

namespace torqctl {

namespace {

std::mutex gSinkMutex;
// Never destroyed: binder threads may log until the very end.
auto* const gSink = new std::function<void(const LogLine&)>();

}  // namespace

void installLogHook(std::function<void(const LogLine&)> sink) {
    {
        std::lock_guard<std::mutex> lock(gSinkMutex);
        *gSink = std::move(sink);
    }
    installPlatformLogger();
}

void deliverLog(int priority, const char* tag, const char* message) {
    const LogLine line{priority, tag != nullptr ? tag : "", message != nullptr ? message : ""};
    std::lock_guard<std::mutex> lock(gSinkMutex);
    if (*gSink) (*gSink)(line);
}

}  // namespace torqctl
