// HOST ONLY: Debian's liblog (the pre-release API with __android_logger_data). The device's
// liblog passes an __android_log_message instead; see device/DeviceLogHook.cpp.

#include <android/log.h>

#include "LogHook.h"

namespace torqctl {

void installPlatformLogger() {
    __android_log_set_logger([](const struct __android_logger_data* data, const char* message) {
        deliverLog(data->priority, data->tag, message);
    });
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace torqctl
