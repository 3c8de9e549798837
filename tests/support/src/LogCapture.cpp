#include <android/log.h>
#include <torq_test/Capture.h>

#include <mutex>

namespace torq_test {
namespace {

std::mutex g_mutex;
std::vector<LogLine> g_lines;
int g_previousMinimum = ANDROID_LOG_DEFAULT;

void captureLogger(const __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.push_back({data->priority, data->tag != nullptr ? data->tag : "",
                       message != nullptr ? message : ""});
}

}  // namespace

LogCapture::LogCapture() {
    clear();
    // On the host liblog drops everything below INFO unless a minimum is set.
    g_previousMinimum = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(captureLogger);
}

LogCapture::~LogCapture() {
    // The host default: lines go to stderr, the minimum is as before.
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(g_previousMinimum);
    clear();
}

std::vector<LogLine> LogCapture::linesWithTag(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<LogLine> out;
    for (const auto& l : g_lines) {
        if (l.tag == tag) out.push_back(l);
    }
    return out;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
}

}  // namespace torq_test
