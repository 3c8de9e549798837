#include <android/log.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>

#include <mutex>

namespace torq_test {

namespace {

std::mutex g_mutex;
bool g_active = false;
std::vector<LogLine> g_lines;
int g_previousMinimum = ANDROID_LOG_DEFAULT;

void captureLogger(const __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_active) {
        // A line that raced with the end of a capture goes where it would have gone.
        __android_log_stderr_logger(data, message);
        return;
    }
    LogLine line;
    line.priority = data->priority;
    line.tag = data->tag != nullptr ? data->tag : "";
    line.text = message != nullptr ? message : "";
    g_lines.push_back(std::move(line));
}

}  // namespace

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_active) {
            ADD_FAILURE() << "only one LogCapture may be alive at a time";
        }
        g_active = true;
        g_lines.clear();
    }
    // liblog gives a line with a null tag the default tag before any logger sees it.
    __android_log_set_default_tag("");
    // On the host liblog drops everything below INFO unless a minimum is set.
    g_previousMinimum = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(captureLogger);
}

LogCapture::~LogCapture() {
    // The host default: lines go to stderr, the minimum and the default tag are as before.
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(g_previousMinimum);
    __android_log_set_default_tag(program_invocation_short_name);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_active = false;
    g_lines.clear();
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
