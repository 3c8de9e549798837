#include "LogHook.h"

#include <android/log.h>

namespace torqctl {

const char* priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
            return "V";
        case ANDROID_LOG_DEBUG:
            return "D";
        case ANDROID_LOG_INFO:
            return "I";
        case ANDROID_LOG_WARN:
            return "W";
        case ANDROID_LOG_ERROR:
            return "E";
        case ANDROID_LOG_FATAL:
            return "F";
        default:
            return "?";
    }
}

}  // namespace torqctl
