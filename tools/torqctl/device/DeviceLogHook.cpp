// Device liblog (API 30 and later): the logger receives an __android_log_message.

#include <android/log.h>

#include "LogHook.h"

namespace torqctl {

void installPlatformLogger() {
    __android_log_set_logger([](const struct __android_log_message* message) {
        deliverLog(message->priority, message->tag, message->message);
        // Still send it to logcat, as the platform's logger would.
        __android_log_logd_logger(message);
    });
}

}  // namespace torqctl
