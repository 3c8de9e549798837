#include "torq_sim/Script.h"

#include <android/binder_status.h>

#include <utility>

namespace torq_sim {

namespace {

struct MethodInfo {
    const char* name;
    OutValue out;
};

constexpr MethodInfo kMethods[] = {
        {"init", OutValue::kNone},
        {"request", OutValue::kResult},
        {"release", OutValue::kResult},
        {"stateRequest", OutValue::kRecords},
        {"listeningRegister", OutValue::kResult},
        {"listeningUnregister", OutValue::kResult},
        {"propertyGet", OutValue::kText},
        {"propertySet", OutValue::kResult},
        {"thermalListeningRegister", OutValue::kResult},
        {"thermalListeningUnregister", OutValue::kResult},
        {"notifyEvent", OutValue::kResult},
        {"setRelatedSysInfo", OutValue::kResult},
        {"ruleCtl", OutValue::kResult},
};

bool failing(const SentAnswer& a) {
    return a.exception != EX_NONE || a.transactionError != STATUS_OK;
}

}  // namespace

const std::vector<std::string>& torqMethods() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> out;
        for (const MethodInfo& m : kMethods) out.emplace_back(m.name);
        return out;
    }();
    return names;
}

std::optional<OutValue> outValueOf(const std::string& method) {
    for (const MethodInfo& m : kMethods) {
        if (method == m.name) return m.out;
    }
    return std::nullopt;
}

std::string checkAnswer(const std::string& method, const SentAnswer& answer) {
    const std::optional<OutValue> out = outValueOf(method);
    if (!out) return "ITorq has no method \"" + method + "\"";
    const bool hasResult = answer.result.has_value();
    const bool hasRecords = answer.records.has_value();
    const bool hasText = answer.text.has_value();
    if (failing(answer) && (hasResult || hasRecords || hasText)) {
        return "an answer to " + method +
               " with a failing status cannot carry an out value: a failed reply has none";
    }
    if (hasResult && *out != OutValue::kResult) {
        return method + " has no int result to answer";
    }
    if (hasRecords && *out != OutValue::kRecords) {
        return method + " has no records to answer (only stateRequest has)";
    }
    if (hasText && *out != OutValue::kText) {
        return method + " has no text to answer (only propertyGet has)";
    }
    if (answer.serviceSpecificError != 0 && answer.exception != EX_SERVICE_SPECIFIC) {
        return "a service-specific error needs exception EX_SERVICE_SPECIFIC";
    }
    if (answer.transactionError != STATUS_OK && answer.exception != EX_NONE) {
        return "an answer fails either its transaction or with an exception, not both";
    }
    return "";
}

std::string Script::set(const std::string& method, const SentAnswer& answer) {
    std::string error = checkAnswer(method, answer);
    if (!error.empty()) return error;
    std::lock_guard<std::mutex> lock(mutex_);
    standing_[method] = answer;
    return "";
}

std::string Script::once(const std::string& method, const SentAnswer& answer) {
    std::string error = checkAnswer(method, answer);
    if (!error.empty()) return error;
    std::lock_guard<std::mutex> lock(mutex_);
    queued_[method].push_back(answer);
    return "";
}

bool Script::clear(const std::string& method) {
    if (!outValueOf(method)) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    standing_.erase(method);
    queued_.erase(method);
    return true;
}

void Script::clearAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    standing_.clear();
    queued_.clear();
}

std::optional<SentAnswer> Script::take(const std::string& method) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (auto q = queued_.find(method); q != queued_.end() && !q->second.empty()) {
        SentAnswer answer = std::move(q->second.front());
        q->second.pop_front();
        return answer;
    }
    if (auto s = standing_.find(method); s != standing_.end()) return s->second;
    return std::nullopt;
}

bool Script::hold(const std::string& method) {
    if (!outValueOf(method)) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    holding_.insert(method);
    return true;
}

void Script::releaseHeld() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        holding_.clear();
    }
    released_.notify_all();
}

void Script::waitWhileHeld(const std::string& method) {
    std::unique_lock<std::mutex> lock(mutex_);
    released_.wait(lock, [&] { return holding_.count(method) == 0; });
}

}  // namespace torq_sim
