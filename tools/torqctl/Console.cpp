#include "Console.h"

#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <list>
#include <optional>
#include <utility>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

constexpr int64_t kAnswerWaitMs = 1000;
constexpr int64_t kDefaultListenMs = 5000;
constexpr char kActionPrefix[] = "VARDEX_";

using torq_sim::hexId;
using torq_sim::quoted;

std::string resourcesText(const std::vector<IdValue>& resources) {
    std::string out = "{";
    for (size_t i = 0; i < resources.size(); ++i) {
        if (i > 0) out += ", ";
        out += hexId(resources[i].id) + "=" + quoted(resources[i].value);
    }
    return out + "}";
}

std::string idsText(const std::vector<int32_t>& ids, bool hex) {
    std::string out = "{";
    for (size_t i = 0; i < ids.size(); ++i) {
        if (i > 0) out += ", ";
        out += hex ? hexId(ids[i]) : std::to_string(ids[i]);
    }
    return out + "}";
}

std::string stringsText(const std::vector<std::string>& items) {
    std::string out = "{";
    for (size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out += ", ";
        out += quoted(items[i]);
    }
    return out + "}";
}

std::list<ZelClient::Resource> resourceList(const std::vector<IdValue>& resources) {
    std::list<ZelClient::Resource> out;
    for (const IdValue& r : resources) out.push_back({r.id, r.value});
    return out;
}

std::vector<ZelClient::Resource> resourceVector(const std::vector<IdValue>& resources) {
    std::vector<ZelClient::Resource> out;
    for (const IdValue& r : resources) out.push_back({r.id, r.value});
    return out;
}

Json::Value valuesJson(const std::vector<std::pair<std::string, std::string>>& pairs,
                       const char* key) {
    Json::Value list(Json::arrayValue);
    for (const auto& [k, v] : pairs) {
        Json::Value item(Json::objectValue);
        item[key] = k;
        item["value"] = v;
        list.append(std::move(item));
    }
    return list;
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

// The caller-side callback objects: they turn the library's callbacks into CallbackEvents. The
// HAL may answer a request before the request call returns, so events wait here until the
// handle they belong to is known.
class CallbackSink {
  public:
    CallbackSink(Console* console, std::string to) : console_(console), to_(std::move(to)) {}

    void arrive(CallbackEvent event) {
        std::lock_guard<std::mutex> lock(mutex_);
        ++received_;
        event.to = to_;
        if (!assigned_) {
            pending_.push_back(std::move(event));
            return;
        }
        event.handle = handle_;
        console_->deliver(event);
    }

    void assign(int32_t handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        assigned_ = true;
        handle_ = handle;
        for (CallbackEvent& e : pending_) {
            e.handle = handle;
            console_->deliver(e);
        }
        pending_.clear();
    }

    size_t received() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return received_;
    }

  private:
    Console* console_;
    const std::string to_;
    mutable std::mutex mutex_;
    bool assigned_ = false;
    int32_t handle_ = 0;
    size_t received_ = 0;
    std::vector<CallbackEvent> pending_;
};

namespace {

class IdCallback : public IClientCallback {
  public:
    explicit IdCallback(std::shared_ptr<CallbackSink> sink) : sink_(std::move(sink)) {}
    void onCallback(std::list<ZelClient::Resource> resources) override {
        CallbackEvent event;
        for (const auto& r : resources) {
            event.records.emplace_back(hexId(r.id), r.value.value_or(""));
        }
        sink_->arrive(std::move(event));
    }

  private:
    std::shared_ptr<CallbackSink> sink_;
};

class PathCallback : public IClientCallbackByPath {
  public:
    explicit PathCallback(std::shared_ptr<CallbackSink> sink) : sink_(std::move(sink)) {}
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        CallbackEvent event;
        event.byPath = true;
        for (size_t i = 0; i < paths.size(); ++i) {
            event.records.emplace_back(paths[i], i < values.size() ? values[i] : "");
        }
        sink_->arrive(std::move(event));
    }

  private:
    std::shared_ptr<CallbackSink> sink_;
};

}  // namespace

Console::Console(Output& out, Backend& backend, bool shellMode)
    : out_(out), backend_(backend), shellMode_(shellMode) {}

Console::~Console() {
    finish();
}

void Console::finish() {
    if (restartThread_.joinable()) restartThread_.join();
    if (!backend_.halUp()) return;
    // Leave the HAL as we found it: listeners of this run go.
    for (const auto& [handle, origin] : handles_) {
        if (origin == Origin::kListener) torqHalclient::torqResListeningUnRegister(handle);
        if (origin == Origin::kThermalListener) {
            torqHalclient::torqThermalListeningUnregister(handle);
        }
    }
    handles_.clear();
    listeners_.clear();
}

// --- events and logs -----------------------------------------------------------------------

void Console::deliver(const CallbackEvent& event) {
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        // A callback made while a call is running prints after that call's report.
        if (callInProgress_) {
            held_.push_back(event);
            events_.push_back(event);
            eventsCv_.notify_all();
            return;
        }
    }
    // Printed before anyone waiting for it is woken, so the output keeps its order.
    out_.callback(event);
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        events_.push_back(event);
    }
    eventsCv_.notify_all();
}

void Console::releaseHeld() {
    std::vector<CallbackEvent> held;
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        callInProgress_ = false;
        held.swap(held_);
    }
    for (const CallbackEvent& e : held) out_.callback(e);
}

std::vector<CallbackEvent> Console::callbacks() const {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    return events_;
}

bool Console::waitForCallbacks(size_t count, int64_t timeoutMs) const {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    return eventsCv_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [&] { return events_.size() >= count; });
}

void Console::onLog(const LogLine& line, bool show) {
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        logLines_.push_back(line);
    }
    eventsCv_.notify_all();
    if (show) out_.log(line);
}

size_t Console::countLog(const std::string& message) const {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    return static_cast<size_t>(
            std::count_if(logLines_.begin(), logLines_.end(),
                          [&](const LogLine& l) { return l.message == message; }));
}

bool Console::waitForLog(const std::string& message, size_t count, int64_t timeoutMs) const {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    return eventsCv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return static_cast<size_t>(std::count_if(
                       logLines_.begin(), logLines_.end(),
                       [&](const LogLine& l) { return l.message == message; })) >= count;
    });
}

// --- running commands ----------------------------------------------------------------------

int Console::usageError(const std::string& message) {
    out_.error(message, kExitUsage);
    return kExitUsage;
}

int Console::noHal(const std::string& message) {
    out_.error(message, kExitNoHal);
    return kExitNoHal;
}

bool Console::halclientUsable() {
    // A dead but declared HAL makes torqHalclient wait until it is back; without a restart on
    // its way that would hang the shell.
    return backend_.halUp() || restartPending_;
}

void Console::begin() {
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        callInProgress_ = true;
    }
    halMark_ = backend_.journalMark();
}

void Console::finishReport(Report& report) {
    if (backend_.simulated()) {
        report.halVisible = true;
        report.hal = backend_.journalSince(halMark_);
    }
    out_.report(report);
    reports_.push_back(report);
    halMark_ = backend_.journalMark();
    releaseHeld();
}

int Console::status() const {
    for (const Report& r : reports_) {
        if (!r.ok) return kExitFailed;
    }
    return kExitOk;
}

void Console::remember(int32_t handle, Origin origin) {
    if (shellMode_ && handle > 0) handles_[handle] = origin;
}

void Console::forget(int32_t handle) {
    handles_.erase(handle);
    listeners_.erase(handle);
}

void Console::holdListener(int32_t handle, std::shared_ptr<CallbackSink> sink) {
    if (handle > 0) listeners_[handle] = std::move(sink);
}

void Console::listenFor(int64_t ms) {
    if (ms > 0) out_.message("listening for " + std::to_string(ms) + " ms");
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void Console::awaitAnswer(const std::shared_ptr<CallbackSink>& sink) {
    const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(kAnswerWaitMs);
    while (sink->received() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

int Console::run(const std::string& line) {
    ParseResult parsed = parseShellLine(line);
    if (!parsed.ok) return usageError(parsed.error);
    if (parsed.command.verb == Verb::kNone) return kExitOk;
    return execute(parsed.command);
}

int Console::runShell(std::istream& in, bool interactive) {
    int result = kExitOk;
    std::string line;
    size_t lineNo = 0;
    for (;;) {
        if (interactive) out_.raw("torqctl> ");
        if (!std::getline(in, line)) break;
        ++lineNo;
        ParseResult parsed = parseShellLine(line);
        if (!parsed.ok) {
            out_.error("line " + std::to_string(lineNo) + ": " + parsed.error, kExitUsage);
            result = kExitUsage;
            continue;
        }
        if (parsed.command.verb == Verb::kNone) continue;
        if (!interactive && !out_.json()) out_.message("> " + line);
        const int status = execute(parsed.command);
        if (status != kExitOk) result = status;
    }
    if (interactive) out_.raw("\n");
    return result;
}

int Console::execute(const Command& c) {
    reports_.clear();
    if (c.help) {
        out_.raw(commandUsage(c.verb));
        return kExitOk;
    }
    const int result = dispatch(c);
    releaseHeld();
    return result;
}

int Console::dispatch(const Command& c) {
    switch (c.verb) {
        case Verb::kNone:
            return kExitOk;
        case Verb::kHelp:
            out_.raw(c.topic.empty() ? usage() : commandUsage(c.topic));
            return kExitOk;
        case Verb::kActions:
            return actions(c);
        case Verb::kAcquire:
            return acquire(c);
        case Verb::kAcquireId:
            return acquireId(c);
        case Verb::kResAcquire:
            return resAcquire(c);
        case Verb::kRelease:
            return release(c);
        case Verb::kResCtl:
            return resCtl(c);
        case Verb::kResCtlPath:
            return resCtlPath(c);
        case Verb::kSaCtl:
            return saCtl(c);
        case Verb::kState:
            return state(c);
        case Verb::kStatePath:
            return statePath(c);
        case Verb::kListen:
            return listen(c);
        case Verb::kUnlisten:
            return unlisten(c);
        case Verb::kThermal:
            return thermal(c);
        case Verb::kThermalListen:
            return thermalListen(c);
        case Verb::kThermalUnlisten:
            return thermalUnlisten(c);
        case Verb::kNotify:
            return notify(c);
        case Verb::kZelNotify:
            return zelNotify(c);
        case Verb::kRule:
            return rule(c);
        case Verb::kSysInfo:
            return sysInfo(c);
        case Verb::kHistory:
            return history(c);
        case Verb::kPm:
            return pm(c);
        case Verb::kDump:
            return dump(c);
        case Verb::kProp:
            return prop(c);
        case Verb::kInit:
            return init(c);
        case Verb::kJournal:
            return journal(c);
        case Verb::kWait:
            std::this_thread::sleep_for(std::chrono::milliseconds(c.forMs.value_or(0)));
            return kExitOk;
        case Verb::kKillHal:
            return killHal(c);
        case Verb::kRestartHal:
            return restartHal(c);
        case Verb::kShell:
        case Verb::kTour:
            return usageError("'" + c.word + "' cannot run here");
    }
    return kExitOk;
}

#define REQUIRE_HALCLIENT()                                                             \
    do {                                                                                \
        if (!halclientUsable()) {                                                       \
            return noHal(                                                               \
                    "the HAL is down: torqHalclient calls would wait until it is back " \
                    "(restart-hal first)");                                             \
        }                                                                               \
    } while (0)

// --- the action wrapper ----------------------------------------------------------------------

int Console::actions(const Command& c) {
    Json::Value list(Json::arrayValue);
    std::vector<std::string> lines;
    const std::string pattern = lower(c.name);
    for (size_t i = 0; i < gActionList.size(); ++i) {
        if (!pattern.empty() && lower(gActionList[i]).find(pattern) == std::string::npos) continue;
        std::string number = std::to_string(i);
        lines.push_back(std::string(number.size() < 5 ? 5 - number.size() : 0, ' ') + number +
                        "  " + gActionList[i]);
        Json::Value item(Json::objectValue);
        item["id"] = static_cast<Json::UInt64>(i);
        item["name"] = gActionList[i];
        list.append(std::move(item));
    }
    Json::Value j(Json::objectValue);
    j["command"] = "actions";
    j["pattern"] = c.name;
    j["count"] = list.size();
    j["actions"] = list;
    if (out_.json()) {
        out_.message("", j);
    } else {
        std::string text = "event id  action (" + std::to_string(lines.size()) + " of " +
                           std::to_string(gActionList.size()) + ")\n";
        for (const std::string& l : lines) text += l + "\n";
        out_.raw(text);
    }
    return lines.empty() ? kExitFailed : kExitOk;
}

int Console::acquire(const Command& c) {
    std::string eventId = c.name;
    if (eventId.compare(0, strlen(kActionPrefix), kActionPrefix) != 0) {
        eventId = kActionPrefix + eventId;
    }
    const std::string action = eventId.substr(strlen(kActionPrefix));
    auto it = std::find(gActionList.begin(), gActionList.end(), action);
    if (it == gActionList.end()) {
        return usageError("unknown action " + quoted(c.name) + " (see 'torqctl actions')");
    }
    const auto index = static_cast<int32_t>(it - gActionList.begin());
    begin();
    Report r;
    r.command = c.word;
    r.call = "ZelEventAcquireWrapper";
    r.args = quoted(eventId) + ", " + quoted(c.text) + ", " + quoted(c.identity) + ", " +
             std::to_string(c.duration);
    const int handle =
            ZelEventAcquireWrapper(eventId, c.text, c.identity, static_cast<int>(c.duration));
    r.result = handle;
    r.ok = handle >= 1;
    r.details.push_back("action " + action + " is event id " + std::to_string(index));
    r.extra["event_id"] = index;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kWrapper);
    return status();
}

int Console::notify(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "ZelNotifyWapper";
    r.args = quoted(c.notifyName) + ", " + std::to_string(c.number) + ", " +
             std::to_string(c.number2) + ", " + std::to_string(c.number3) + ", 0, 0, " +
             quoted(c.text);
    r.result = ZelNotifyWapper(c.notifyName, c.number, c.number2, c.number3, 0, 0, c.text);
    r.ok = *r.result == 0;
    finishReport(r);
    return status();
}

// --- the flat API --------------------------------------------------------------------------

int Console::acquireId(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "ZelEventAcquire";
    r.args = std::to_string(c.number) + ", " + quoted(c.text) + ", " + quoted(c.identity) + ", " +
             std::to_string(c.duration) + ", " + resourcesText(c.resources);
    const int32_t handle =
            ZelEventAcquire(c.number, c.text, c.identity, static_cast<int32_t>(c.duration),
                            resourceVector(c.resources));
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kZel);
    return status();
}

int Console::resAcquire(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    const auto resources = resourceVector(c.resources);
    int32_t handle;
    if (c.platform) {
        r.call = "ZelPlatformResAcquire";
        r.args = resourcesText(c.resources) + ", 0, " + quoted(c.identity) + ", " + quoted(c.text) +
                 ", " + std::to_string(c.duration);
        handle = ZelPlatformResAcquire(resources, 0, c.identity, c.text,
                                       static_cast<int32_t>(c.duration));
    } else {
        r.call = "ZelResAcquire";
        r.args = resourcesText(c.resources) + ", 0, " + quoted(c.identity) + ", " +
                 std::to_string(c.duration);
        handle = ZelResAcquire(resources, 0, c.identity, static_cast<int32_t>(c.duration));
    }
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kZel);
    return status();
}

int Console::release(const Command& c) {
    std::string via = c.via;
    if (shellMode_) {
        auto it = handles_.find(c.number);
        if (it == handles_.end()) {
            return usageError("unknown handle " + std::to_string(c.number) +
                              " (not obtained in this run)");
        }
        if (it->second == Origin::kListener || it->second == Origin::kThermalListener) {
            return usageError("handle " + std::to_string(c.number) + " is a listener: use " +
                              (it->second == Origin::kListener ? "unlisten" : "thermal-unlisten"));
        }
        if (via.empty()) {
            switch (it->second) {
                case Origin::kWrapper:
                    via = "wrapper";
                    break;
                case Origin::kHalclient:
                    via = "halclient";
                    break;
                case Origin::kSa:
                    via = "sa";
                    break;
                default:
                    via = "zel";
            }
        }
    }
    if (via.empty()) via = "zel";
    if ((via == "halclient" || via == "sa")) REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    r.args = std::to_string(c.number);
    if (via == "wrapper") {
        r.call = "ZelReleaseWapper";
        ZelReleaseWapper(c.number);
    } else if (via == "zel") {
        r.call = "ZelRelease";
        ZelRelease(c.number);
    } else if (via == "halclient") {
        r.call = "torqHalclient::torqResCtlRelease";
        r.result = torqHalclient::torqResCtlRelease(c.number);
        r.ok = *r.result >= 0;
    } else {
        r.call = "torqHalclient::torqSACtlRelease";
        r.result = torqHalclient::torqSACtlRelease(c.number);
        r.ok = *r.result >= 0;
    }
    finishReport(r);
    if (r.ok) forget(c.number);
    return status();
}

int Console::zelNotify(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "ZelNotify";
    r.args = std::to_string(c.number) + ", " + std::to_string(c.number2) + ", " +
             idsText(c.ids, false);
    r.result = ZelNotify(c.number, c.number2, c.ids);
    r.ok = *r.result != -1;
    finishReport(r);
    return status();
}

int Console::rule(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "zelRuleCtl";
    r.args = std::to_string(c.number) + ", " + std::to_string(c.number2) + ", " +
             resourcesText(c.resources);
    r.result = zelRuleCtl(c.number, c.number2, resourceVector(c.resources));
    r.ok = *r.result != -1;
    finishReport(r);
    return status();
}

int Console::sysInfo(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "setRelatedSysInfo";
    r.args = std::to_string(c.number) + ", " + std::to_string(c.value64);
    r.result = setRelatedSysInfo(c.number, c.value64);
    r.ok = *r.result != -1;
    finishReport(r);
    return status();
}

int Console::pm(const Command& c) {
    begin();
    Report r;
    r.command = c.word;
    r.call = "ZelGetPMStatus";
    r.args = std::to_string(c.number);
    try {
        r.result = ZelGetPMStatus(c.number);
        r.ok = *r.result != -1;
    } catch (const std::bad_optional_access&) {
        // The flat API lets this one escape when the HAL answers without a value.
        r.ok = false;
        r.details.push_back("threw std::bad_optional_access (the HAL's record had no value)");
        r.extra["exception"] = "std::bad_optional_access";
    }
    finishReport(r);
    return status();
}

// --- torqHalclient ------------------------------------------------------------------------

int Console::resCtl(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    r.call = "torqHalclient::torqResCtlRequest";
    r.args = std::to_string(c.param) + ", " + std::to_string(c.duration) + ", " +
             resourcesText(c.resources) + ", " + std::to_string(c.option) + ", " +
             std::to_string(c.level) + ", " + std::to_string(c.tag);
    auto list = resourceList(c.resources);
    std::shared_ptr<CallbackSink> sink;
    int32_t handle;
    if (c.callback) {
        sink = std::make_shared<CallbackSink>(this, "request");
        r.args += ", callback";
        handle = torqHalclient::torqResCtlRequest(c.param, static_cast<int32_t>(c.duration), list,
                                                  c.option, c.level, c.tag,
                                                  std::make_shared<IdCallback>(sink));
    } else {
        handle = torqHalclient::torqResCtlRequest(c.param, static_cast<int32_t>(c.duration), list,
                                                  c.option, c.level, c.tag);
    }
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kHalclient);
    if (sink) {
        sink->assign(handle);
        if (handle >= 1) awaitAnswer(sink);
    }
    return status();
}

int Console::resCtlPath(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    std::vector<std::string> paths;
    std::vector<std::string> values;
    for (const PathValue& pv : c.paths) {
        paths.push_back(pv.path);
        values.push_back(pv.value.value_or(""));
    }
    r.args = std::to_string(c.param) + ", " + std::to_string(c.duration) + ", " +
             stringsText(paths) + ", " + stringsText(values) + ", " + std::to_string(c.option) +
             ", " + std::to_string(c.level) + ", " + std::to_string(c.tag);
    std::shared_ptr<CallbackSink> sink;
    int32_t handle;
    if (c.callback) {
        sink = std::make_shared<CallbackSink>(this, "request");
        r.call = "torqHalclient::torq_resctl_request_with_callback_by_path";
        r.args += ", callback";
        handle = torqHalclient::torq_resctl_request_with_callback_by_path(
                c.param, c.duration, paths, values, c.option, c.level, c.tag,
                std::make_shared<PathCallback>(sink));
    } else {
        r.call = "torqHalclient::torq_resctl_request_by_path";
        handle = torqHalclient::torq_resctl_request_by_path(c.param, c.duration, paths, values,
                                                            c.option, c.level, c.tag);
    }
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kHalclient);
    if (sink) {
        sink->assign(handle);
        if (handle >= 1) awaitAnswer(sink);
    }
    return status();
}

int Console::saCtl(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    r.call = "torqHalclient::torqSACtlRequest";
    r.args = std::to_string(c.param) + ", " + std::to_string(c.duration) + ", " + hexId(c.number) +
             ", " + std::to_string(c.option) + ", " + std::to_string(c.level) + ", " +
             std::to_string(c.tag);
    std::shared_ptr<CallbackSink> sink;
    int32_t handle;
    if (c.callback) {
        sink = std::make_shared<CallbackSink>(this, "request");
        r.args += ", callback";
        handle = torqHalclient::torqSACtlRequest(c.param, static_cast<int32_t>(c.duration),
                                                 c.number, c.option, c.level, c.tag,
                                                 std::make_shared<IdCallback>(sink));
    } else {
        handle = torqHalclient::torqSACtlRequest(c.param, static_cast<int32_t>(c.duration),
                                                 c.number, c.option, c.level, c.tag);
    }
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    remember(handle, Origin::kSa);
    if (sink) {
        sink->assign(handle);
        if (handle >= 1) awaitAnswer(sink);
    }
    return status();
}

int Console::state(const Command& c) {
    const std::string via = c.via.empty() ? "halclient" : c.via;
    if (via == "halclient") REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    std::vector<std::pair<std::string, std::string>> values;
    if (via == "halclient") {
        r.call = "torqHalclient::torqResStateRequest";
        r.args = idsText(c.ids, true) + ", " + std::to_string(c.tag) + ", output";
        std::list<ZelClient::Resource> in;
        for (int32_t id : c.ids) in.push_back({id, std::nullopt});
        std::list<ZelClient::Resource> output;
        r.result = torqHalclient::torqResStateRequest(in, c.tag, output);
        r.ok = *r.result >= 0;
        for (const auto& res : output) values.emplace_back(hexId(res.id), res.value.value_or(""));
    } else if (via == "zel") {
        r.call = "ZelMutiResStateRequest";
        r.args = idsText(c.ids, true);
        std::vector<ZelClient::Resource> resources;
        for (int32_t id : c.ids) resources.push_back({id, std::string()});
        r.result = ZelMutiResStateRequest(resources);
        r.ok = *r.result >= 0;
        for (const auto& res : resources)
            values.emplace_back(hexId(res.id), res.value.value_or(""));
    } else {
        r.call = "ZelResStateRequest";
        r.args = hexId(c.ids[0]) + ", value";
        // A marker no HAL value can equal tells "left untouched" from "set to empty".
        const std::string untouched("\x01untouched", 10);
        std::string value = untouched;
        ZelResStateRequest(c.ids[0], value);
        r.ok = value != untouched;
        if (r.ok) values.emplace_back(hexId(c.ids[0]), value);
        if (!r.ok) r.details.push_back("value left untouched");
    }
    for (const auto& [k, v] : values) r.details.push_back(k + " = " + quoted(v));
    r.extra["values"] = valuesJson(values, "id");
    finishReport(r);
    return status();
}

int Console::statePath(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    std::vector<std::pair<std::string, std::string>> values;
    if (c.map) {
        r.call = "torqHalclient::torq_res_state_request_map_by_path";
        std::map<std::string, std::string> in;
        std::string argText = "{";
        for (const PathValue& pv : c.paths) in[pv.path] = pv.value.value_or("");
        for (const auto& [k, v] : in) {
            argText += (argText.size() > 1 ? ", " : "") + quoted(k) + ": " + quoted(v);
        }
        r.args = argText + "}, " + std::to_string(c.tag) + ", output";
        std::map<std::string, std::string> output;
        r.result = torqHalclient::torq_res_state_request_map_by_path(in, c.tag, output);
        for (const auto& [k, v] : output) values.emplace_back(k, v);
    } else {
        r.call = "torqHalclient::torq_res_state_request_by_path";
        std::vector<std::string> paths;
        std::vector<std::string> given;
        for (const PathValue& pv : c.paths) {
            paths.push_back(pv.path);
            if (pv.value) given.push_back(*pv.value);
        }
        r.args = stringsText(paths) + ", " + stringsText(given) + ", " + std::to_string(c.tag) +
                 ", output";
        std::vector<std::string> output;
        r.result = torqHalclient::torq_res_state_request_by_path(paths, given, c.tag, output);
        // The answer is positional: value i belongs to path i.
        for (size_t i = 0; i < output.size(); ++i) {
            values.emplace_back(i < paths.size() ? paths[i] : "#" + std::to_string(i), output[i]);
        }
    }
    r.ok = *r.result >= 0;
    for (const auto& [k, v] : values) r.details.push_back(k + " = " + quoted(v));
    r.extra["values"] = valuesJson(values, "path");
    finishReport(r);
    return status();
}

int Console::listen(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    auto sink = std::make_shared<CallbackSink>(this, "listener");
    int32_t handle;
    if (!c.paths.empty()) {
        std::vector<std::string> paths;
        for (const PathValue& pv : c.paths) paths.push_back(pv.path);
        r.call = "torqHalclient::torq_res_listening_register_by_path";
        r.args = stringsText(paths) + ", " + std::to_string(c.tag) + ", callback";
        handle = torqHalclient::torq_res_listening_register_by_path(
                paths, c.tag, std::make_shared<PathCallback>(sink));
    } else {
        std::list<ZelClient::Resource> in;
        for (int32_t id : c.ids) in.push_back({id, std::nullopt});
        r.call = "torqHalclient::torqResListeningRegister";
        r.args = idsText(c.ids, true) + ", " + std::to_string(c.tag) + ", callback";
        handle = torqHalclient::torqResListeningRegister(in, c.tag,
                                                         std::make_shared<IdCallback>(sink));
    }
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    sink->assign(handle);
    if (!r.ok) return status();
    if (shellMode_ && !c.forMs) {
        remember(handle, Origin::kListener);
        holdListener(handle, sink);
        return status();
    }
    listenFor(c.forMs.value_or(kDefaultListenMs));
    return doUnlisten(handle, /*thermal=*/false);
}

int Console::unlisten(const Command& c) {
    if (shellMode_) {
        auto it = handles_.find(c.number);
        if (it == handles_.end() || it->second != Origin::kListener) {
            return usageError("unknown listener handle " + std::to_string(c.number));
        }
    }
    REQUIRE_HALCLIENT();
    return doUnlisten(c.number, /*thermal=*/false);
}

int Console::doUnlisten(int32_t handle, bool thermal) {
    begin();
    Report r;
    r.command = thermal ? "thermal-unlisten" : "unlisten";
    r.args = std::to_string(handle);
    if (thermal) {
        r.call = "torqHalclient::torqThermalListeningUnregister";
        r.result = torqHalclient::torqThermalListeningUnregister(handle);
    } else {
        r.call = "torqHalclient::torqResListeningUnRegister";
        r.result = torqHalclient::torqResListeningUnRegister(handle);
    }
    r.ok = *r.result >= 0;
    finishReport(r);
    if (r.ok) forget(handle);
    return status();
}

int Console::thermal(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    r.call = "torqHalclient::torqThermalNotify";
    std::string args = "{";
    for (size_t i = 0; i < c.resources.size(); ++i) {
        args += (i > 0 ? ", " : "") + std::to_string(c.resources[i].id) + "=" +
                quoted(c.resources[i].value);
    }
    r.args = args + "}, " + std::to_string(c.tag);
    auto list = resourceList(c.resources);
    r.result = torqHalclient::torqThermalNotify(list, c.tag);
    r.ok = *r.result == 0;
    finishReport(r);
    return status();
}

int Console::thermalListen(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    r.call = "torqHalclient::torqThermalListeningRegister";
    r.args = idsText(c.ids, false) + ", callback";
    auto sink = std::make_shared<CallbackSink>(this, "thermal listener");
    const int32_t handle =
            torqHalclient::torqThermalListeningRegister(c.ids, std::make_shared<IdCallback>(sink));
    r.result = handle;
    r.ok = handle >= 1;
    r.extra["handle"] = handle;
    finishReport(r);
    sink->assign(handle);
    if (!r.ok) return status();
    if (shellMode_ && !c.forMs) {
        remember(handle, Origin::kThermalListener);
        holdListener(handle, sink);
        return status();
    }
    listenFor(c.forMs.value_or(kDefaultListenMs));
    return doUnlisten(handle, /*thermal=*/true);
}

int Console::thermalUnlisten(const Command& c) {
    if (shellMode_) {
        auto it = handles_.find(c.number);
        if (it == handles_.end() || it->second != Origin::kThermalListener) {
            return usageError("unknown thermal listener handle " + std::to_string(c.number));
        }
    }
    REQUIRE_HALCLIENT();
    return doUnlisten(c.number, /*thermal=*/true);
}

int Console::history(const Command& c) {
    if (c.name != "show") REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    if (c.name == "show") {
        r.call = "ZelGetHistory";
        r.args = "history";
        std::string text;
        r.result = ZelGetHistory(text);
        r.ok = *r.result == 0;
        if (r.ok) {
            // "start:a;b;...;end": one record per line reads better.
            std::string body = text;
            if (body.compare(0, 6, "start:") == 0) body = body.substr(6);
            if (body.size() >= 4 && body.compare(body.size() - 4, 4, ";end") == 0) {
                body.resize(body.size() - 4);
            }
            size_t pos = 0;
            while (pos <= body.size()) {
                const size_t next = body.find(';', pos);
                r.details.push_back(body.substr(pos, next - pos));
                if (next == std::string::npos) break;
                pos = next + 1;
            }
        }
        r.extra["history"] = text;
    } else {
        const bool on = c.name == "on";
        r.call = on ? "torqHalclient::torqHistoryRequestRecordOn"
                    : "torqHalclient::torqHistoryRequestRecordOff";
        r.result = on ? torqHalclient::torqHistoryRequestRecordOn()
                      : torqHalclient::torqHistoryRequestRecordOff();
        r.ok = *r.result == 0;
    }
    finishReport(r);
    return status();
}

int Console::dump(const Command& c) {
    REQUIRE_HALCLIENT();
    static int32_t (*const kDumps[])() = {
            torqHalclient::torqDumpToDoQueue,    torqHalclient::torqDumpRunMap,
            torqHalclient::torqDumpActiveResMap, torqHalclient::torqDumpResRequest,
            torqHalclient::torqDumpResInfo,      torqHalclient::torqDumpSAInfo,
            torqHalclient::torqDumpPidFdList,    torqHalclient::torqDumpPidfdMonitorMap,
            torqHalclient::torqDumpResRecordList};
    const int32_t first = c.allDumps ? 0 : c.number;
    const int32_t last = c.allDumps ? 8 : c.number;
    backend_.takeDumpOutput();  // drop anything printed before
    for (int32_t code = first; code <= last; ++code) {
        begin();
        Report r;
        r.command = c.word;
        r.call = std::string("torqHalclient::torqDump") + dumpName(code);
        r.result = kDumps[code]();
        r.ok = *r.result == 0;
        const std::vector<std::string> lines = backend_.takeDumpOutput();
        Json::Value output(Json::arrayValue);
        for (const std::string& line : lines) {
            r.details.push_back(line);
            output.append(line);
        }
        if (backend_.simulated()) r.extra["output"] = std::move(output);
        finishReport(r);
    }
    return status();
}

int Console::prop(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report r;
    r.command = c.word;
    if (c.name == "get") {
        r.call = "torqHalclient::torqPropertyGet";
        r.args = quoted(c.text);
        char* buffer = torqHalclient::torqPropertyGet(c.text);
        // The buffer is 256 bytes and not cleared when the HAL is out of reach: read no further.
        const std::string value(buffer, strnlen(buffer, 256));
        delete[] buffer;
        r.details.push_back(quoted(value));
        r.extra["value"] = value;
    } else {
        r.call = "torqHalclient::torqPropertySet";
        r.args = quoted(c.text) + ", " + quoted(c.value);
        r.result = torqHalclient::torqPropertySet(c.text, c.value);
        r.ok = *r.result >= 0;
    }
    finishReport(r);
    return status();
}

int Console::init(const Command& c) {
    REQUIRE_HALCLIENT();
    begin();
    Report first;
    first.command = c.word;
    first.call = "torqHalclient::torq_init";
    torqHalclient::torq_init();
    finishReport(first);
    Report second;
    second.command = c.word;
    second.call = "zelInit";
    second.result = zelInit();
    second.ok = *second.result == 0;
    finishReport(second);
    return status();
}

// --- the simulator ---------------------------------------------------------------------------

int Console::journal(const Command& /*c*/) {
    if (!backend_.simulated()) return noHal("the journal needs the simulator");
    const auto entries = backend_.journalSince(0);
    if (out_.json()) {
        Json::Value j(Json::objectValue);
        j["command"] = "journal";
        j["entries"] = halJson(entries);
        out_.message("", j);
    } else {
        std::string text;
        for (const auto& e : entries) text += std::to_string(e.seq) + "  " + e.toString() + "\n";
        out_.raw(text);
    }
    return kExitOk;
}

int Console::killHal(const Command& c) {
    std::string error;
    if (!backend_.simulated()) return noHal("kill-hal needs the simulator");
    const uint64_t mark = backend_.journalMark();
    if (!backend_.killHal(&error)) return usageError(error);
    // Everything the dead HAL granted is gone with it.
    handles_.clear();
    listeners_.clear();
    Json::Value j(Json::objectValue);
    j["command"] = c.word;
    j["ok"] = true;
    out_.message("the HAL's process was killed", j);
    for (const auto& e : backend_.journalSince(mark)) {
        if (!out_.json()) out_.message("  " + e.toString());
    }
    return kExitOk;
}

int Console::restartHal(const Command& c) {
    if (!backend_.simulated()) return noHal("restart-hal needs the simulator");
    if (restartThread_.joinable()) restartThread_.join();
    if (c.forMs) {
        restartPending_ = true;
        const int64_t ms = *c.forMs;
        restartThread_ = std::thread([this, ms] {
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
            std::string error;
            if (!backend_.restartHal(&error)) out_.error(error, kExitNoHal);
            restartPending_ = false;
        });
        Json::Value j(Json::objectValue);
        j["command"] = c.word;
        j["after_ms"] = static_cast<Json::Int64>(ms);
        j["ok"] = true;
        out_.message("the HAL will restart in " + std::to_string(ms) + " ms", j);
        return kExitOk;
    }
    std::string error;
    if (!backend_.restartHal(&error)) return noHal(error);
    Json::Value j(Json::objectValue);
    j["command"] = c.word;
    j["ok"] = true;
    out_.message("the HAL is running again (a fresh instance)", j);
    return kExitOk;
}

}  // namespace torqctl
