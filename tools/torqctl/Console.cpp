// How a command runs. Every command is a row of one table (in Console::execute). Most are a fill
// function that names each library call, makes it and says how its result reads; Call does the
// rest (the HAL-down refusal, the report with what the HAL received, the handle kept for a shell).
// Commands that check this run's handles, wait, or drive the simulator are members of Console.

#include "Console.h"

#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <list>
#include <optional>
#include <type_traits>
#include <utility>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

constexpr int64_t kAnswerWaitMs = 1000;
constexpr int64_t kDefaultListenMs = 5000;
constexpr char kActionPrefix[] = "VARDEX_";

using torq_sim::hexId;
using torq_sim::quoted;

// How a library function's result tells success; kHandle: it is a handle, or a failure (below 1).
enum Success { kZero, kNotNegative, kNotMinusOne, kHandle };

// A library function for Call::make and Call::request: its name as the report shows it, and a
// call of it (whichever overload the arguments pick), so that the name is written once.
#define LIBRARY_FUNCTION(fn) #fn, [](auto&... a) { return fn(a...); }

// Thrown by a command's calls to refuse it before the library is called.
struct Refusal {
    int exit;
    std::string why;
};

// An SA id: passed as the number it is, shown in hex like an opcode.
struct HexId {
    int32_t id;
    operator int32_t() const { return id; }
};

// How the report shows an argument of each type a library function takes: a resource without a
// value is an opcode asked about; a container is "{a, b, c}", each item shown as it would be alone.
template <typename T>
std::string argText(const T& arg) {
    if constexpr (std::is_same_v<T, std::string>) {
        return quoted(arg);
    } else if constexpr (std::is_convertible_v<T, const char*>) {
        return arg;
    } else if constexpr (std::is_same_v<T, HexId>) {
        return hexId(arg.id);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(arg);
    } else if constexpr (std::is_same_v<T, IdValue>) {
        return std::to_string(arg.id) + "=" + quoted(arg.value);  // thermal ids are small numbers
    } else if constexpr (std::is_same_v<T, ZelClient::Resource>) {
        return arg.value ? hexId(arg.id) + "=" + quoted(*arg.value) : hexId(arg.id);
    } else if constexpr (std::is_same_v<T, std::pair<const std::string, std::string>>) {
        return quoted(arg.first) + ": " + quoted(arg.second);
    } else if constexpr (std::is_same_v<T, std::shared_ptr<CallbackSink>>) {
        return "callback";
    } else {
        std::string out;
        for (const auto& item : arg) out += (out.empty() ? "" : ", ") + argText(item);
        return "{" + out + "}";
    }
}

}  // namespace

// The caller-side callback object, by id or by path: it hands the library's callbacks to the
// console as CallbackEvents.
class CallbackSink : public IClientCallback, public IClientCallbackByPath {
  public:
    CallbackSink(Console* owner, std::string target) : console(owner), to(std::move(target)) {}

    void onCallback(std::list<ZelClient::Resource> resources) override {
        CallbackEvent event;
        for (const auto& r : resources) {
            event.records.emplace_back(hexId(r.id), r.value.value_or(""));
        }
        console->deliver(this, std::move(event));
    }

    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        CallbackEvent event;
        event.byPath = true;
        for (size_t i = 0; i < paths.size(); ++i) {
            event.records.emplace_back(paths[i], i < values.size() ? values[i] : "");
        }
        console->deliver(this, std::move(event));
    }

    Console* const console;
    const std::string to;
    // Only touched under the console's lock: the handle, known once the call that passed this
    // object returned, and the callbacks so far.
    int32_t handle = 0;
    size_t received = 0;
};

void Console::finish() {
    if (restartThread_.joinable()) restartThread_.join();
    if (!backend_.halUp()) return;
    // Leave the HAL as we found it: listeners of this run go.
    for (const auto& [handle, origin] : handles_) {
        if (origin == "listener") torqHalclient::torqResListeningUnRegister(handle);
        if (origin == "thermal listener") torqHalclient::torqThermalListeningUnregister(handle);
    }
    handles_.clear();
}

void Console::deliver(CallbackSink* from, CallbackEvent event) {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    event.to = from->to;
    event.handle = from->handle;
    ++from->received;
    // A callback made while a call is running prints after that call's report (the HAL may answer
    // a request before the call returns its handle).
    if (callInProgress_) {
        held_.emplace_back(from, std::move(event));
        return;
    }
    lock.unlock();
    show(event);
}

// Prints before anyone waiting for the event is woken, so the output keeps its order.
void Console::show(const CallbackEvent& event) {
    out_.callback(event);
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        events_.push_back(event);
    }
    eventsCv_.notify_all();
}

void Console::releaseHeld(CallbackSink* sink, int32_t handle) {
    std::vector<std::pair<const CallbackSink*, CallbackEvent>> held;
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        callInProgress_ = false;
        if (sink != nullptr) sink->handle = handle;
        held.swap(held_);
    }
    for (auto& [from, event] : held) {
        if (from == sink) event.handle = handle;
        show(event);
    }
}

bool Console::waitUntil(int64_t timeoutMs, const Done& done) const {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    return eventsCv_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [&] { return done(events_, logLines_); });
}

void Console::onLog(const LogLine& line, bool show) {
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        logLines_.push_back(line);
    }
    eventsCv_.notify_all();
    if (show) out_.log(line);
}

// A command's library calls on their way to becoming reports: what its fill function makes of
// them. Each call is reported with what the HAL received while it ran; a fill function that makes
// more than one starts each further call with next().
struct Call {
    Call(Console* console, const std::string& word, const char* origin)
        : console(console), origin(origin), mark(console->backend_.journalMark()) {
        r.command = word;
        std::lock_guard<std::mutex> lock(console->eventsMutex_);
        console->callInProgress_ = true;
    }

    Console* console;
    const char* origin;  // what made a handle the call obtains (none: not kept)
    uint64_t mark;       // the journal before the call
    Report r;
    std::optional<int32_t> handle;       // a handle the call obtained
    std::shared_ptr<CallbackSink> sink;  // where the call's callbacks go

    // The function and its arguments as the report shows them.
    template <typename... Args>
    void calls(const std::string& function, const Args&... args) {
        // A dead but declared HAL makes torqHalclient wait until it is back; without a restart on
        // its way that would hang the shell.
        if (function.rfind("torqHalclient::", 0) == 0 && !console->backend_.halUp() &&
            !console->restartPending_) {
            throw Refusal{kExitNoHal,
                          "the HAL is down: torqHalclient calls would wait until it is back "
                          "(restart-hal first)"};
        }
        r.call = function;
        r.args.clear();
        for (const std::string& arg : std::vector<std::string>{argText(args)...}) {
            r.args += (r.args.empty() ? "" : ", ") + arg;
        }
    }
    // Shows the call, makes it with the same arguments and reads its result as `success` says.
    template <typename Fn, typename... Args>
    void make(const std::string& function, Fn fn, Success success, Args&&... args) {
        calls(function, args...);
        if constexpr (std::is_void_v<decltype(fn(args...))>) {
            fn(args...);
        } else if (success == kHandle) {
            obtained(fn(args...));
        } else {
            returned(fn(args...), success);
        }
    }
    // A request that takes a callback object when the command asks for one.
    template <typename Fn, typename... Args>
    void request(const Command& c, const std::string& function, Fn fn, Args&&... args) {
        if (!c.callback) return make(function, fn, kHandle, args...);
        sink = std::make_shared<CallbackSink>(console, "request");
        make(function, fn, kHandle, args..., sink);
    }
    void returned(int64_t value, Success success) {
        r.result = value;
        r.ok = success == kZero ? value == 0 : success == kNotMinusOne ? value != -1 : value >= 0;
    }
    void obtained(int32_t value) {
        r.result = value;
        r.ok = value >= 1;
        r.extra["handle"] = value;
        handle = value;
    }
    void values(const std::vector<std::pair<std::string, std::string>>& pairs, const char* key) {
        for (const auto& [k, v] : pairs) r.details.push_back(k + " = " + quoted(v));
        r.extra["values"] = recordsJson(pairs, key);
    }

    void next() {
        finish();
        *this = Call(console, r.command, origin);
    }

    void finish() {
        Console& s = *console;
        if (s.backend_.simulated()) r.hal = s.backend_.journalSince(mark);
        s.out_.report(r);
        s.reports_.push_back(r);
        s.releaseHeld(sink.get(), handle.value_or(0));
        if (handle && s.shellMode_ && *handle > 0 && origin != nullptr) {
            s.handles_[*handle] = origin;
        }
        // A request's answer comes once: wait a while for it, so that it shows with its command.
        if (sink && sink->to == "request" && handle.value_or(0) >= 1) {
            s.waitUntil(kAnswerWaitMs, [&](const auto&, const auto&) { return sink->received > 0; });
        }
    }
};

namespace {

std::list<ZelClient::Resource> unsetList(const std::vector<int32_t>& ids) {
    std::list<ZelClient::Resource> out;
    for (int32_t id : ids) out.push_back({id, std::nullopt});
    return out;
}

// The resources in the container a library function takes.
template <typename Container = std::vector<ZelClient::Resource>>
Container libraryResources(const std::vector<IdValue>& resources) {
    Container out;
    for (const IdValue& r : resources) out.push_back({r.id, r.value});
    return out;
}

std::vector<std::string> pathsOf(const std::vector<PathValue>& paths) {
    std::vector<std::string> out;
    for (const PathValue& pv : paths) out.push_back(pv.path);
    return out;
}

void acquire(Call& k, const Command& c) {
    // The wrapper wants the prefix, which a name may come with or without.
    const bool prefixed = c.name.rfind(kActionPrefix, 0) == 0;
    const std::string action = prefixed ? c.name.substr(strlen(kActionPrefix)) : c.name;
    const std::string eventId = kActionPrefix + action;
    auto it = std::find(gActionList.begin(), gActionList.end(), action);
    if (it == gActionList.end()) {
        throw Refusal{kExitUsage, "unknown action " + quoted(c.name) + " (see 'torqctl actions')"};
    }
    const auto index = static_cast<int32_t>(it - gActionList.begin());
    k.make(LIBRARY_FUNCTION(ZelEventAcquireWrapper), kHandle, eventId, c.text, c.identity,
           static_cast<int>(c.duration));
    k.r.details.push_back("action " + action + " is event id " + std::to_string(index));
    k.r.extra["event_id"] = index;
}

void pm(Call& k, const Command& c) {
    try {
        k.make(LIBRARY_FUNCTION(ZelGetPMStatus), kNotMinusOne, c.number);
    } catch (const std::bad_optional_access&) {
        // The flat API lets this one escape when the HAL answers without a value.
        k.r.ok = false;
        k.r.details.push_back("threw std::bad_optional_access (the HAL's record had no value)");
        k.r.extra["exception"] = "std::bad_optional_access";
    }
}

void resCtlPath(Call& k, const Command& c) {
    std::vector<std::string> values;
    for (const PathValue& pv : c.paths) values.push_back(pv.value.value_or(""));
    const auto fn = [](auto&... a) {
        if constexpr (sizeof...(a) == 8) {
            return torqHalclient::torq_resctl_request_with_callback_by_path(a...);
        } else {
            return torqHalclient::torq_resctl_request_by_path(a...);
        }
    };
    k.request(c,
              c.callback ? "torqHalclient::torq_resctl_request_with_callback_by_path"
                         : "torqHalclient::torq_resctl_request_by_path",
              fn, c.param, c.duration, pathsOf(c.paths), values, c.option, c.level, c.tag);
}

void state(Call& k, const Command& c) {
    std::vector<std::pair<std::string, std::string>> values;
    const auto read = [&](const auto& resources) {
        for (const auto& res : resources)
            values.emplace_back(hexId(res.id), res.value.value_or(""));
    };
    if (c.via.empty() || c.via == "halclient") {
        auto in = unsetList(c.ids);
        k.calls("torqHalclient::torqResStateRequest", in, c.tag, "output");
        std::list<ZelClient::Resource> output;
        k.returned(torqHalclient::torqResStateRequest(in, c.tag, output), kNotNegative);
        read(output);
    } else if (c.via == "zel") {
        k.calls("ZelMutiResStateRequest", unsetList(c.ids));
        std::vector<ZelClient::Resource> resources;
        for (int32_t id : c.ids) resources.push_back({id, std::string()});
        k.returned(ZelMutiResStateRequest(resources), kNotNegative);
        read(resources);
    } else {
        k.calls("ZelResStateRequest", HexId{c.ids[0]}, "value");
        // A marker no HAL value can equal tells "left untouched" from "set to empty".
        const std::string untouched("\x01untouched", 10);
        std::string value = untouched;
        ZelResStateRequest(c.ids[0], value);
        k.r.ok = value != untouched;
        if (k.r.ok) values.emplace_back(hexId(c.ids[0]), value);
        if (!k.r.ok) k.r.details.push_back("value left untouched");
    }
    k.values(values, "id");
}

void statePath(Call& k, const Command& c) {
    std::vector<std::pair<std::string, std::string>> values;
    int32_t result;
    if (c.map) {
        std::map<std::string, std::string> in;
        for (const PathValue& pv : c.paths) in[pv.path] = pv.value.value_or("");
        k.calls("torqHalclient::torq_res_state_request_map_by_path", in, c.tag, "output");
        std::map<std::string, std::string> output;
        result = torqHalclient::torq_res_state_request_map_by_path(in, c.tag, output);
        values.assign(output.begin(), output.end());
    } else {
        const std::vector<std::string> paths = pathsOf(c.paths);
        std::vector<std::string> given;
        for (const PathValue& pv : c.paths) {
            if (pv.value) given.push_back(*pv.value);
        }
        k.calls("torqHalclient::torq_res_state_request_by_path", paths, given, c.tag, "output");
        std::vector<std::string> output;
        result = torqHalclient::torq_res_state_request_by_path(paths, given, c.tag, output);
        // The answer is positional: value i belongs to path i.
        for (size_t i = 0; i < output.size(); ++i) {
            values.emplace_back(i < paths.size() ? paths[i] : "#" + std::to_string(i), output[i]);
        }
    }
    k.returned(result, kNotNegative);
    k.values(values, "path");
}

void history(Call& k, const Command& c) {
    if (c.name == "on") {
        return k.make(LIBRARY_FUNCTION(torqHalclient::torqHistoryRequestRecordOn), kZero);
    } else if (c.name == "off") {
        return k.make(LIBRARY_FUNCTION(torqHalclient::torqHistoryRequestRecordOff), kZero);
    }
    k.calls("ZelGetHistory", "history");
    std::string text;
    k.returned(ZelGetHistory(text), kZero);
    k.r.extra["history"] = text;
    if (!k.r.ok) return;
    // "start:a;b;...;end": one record per line reads better.
    std::string body = text.compare(0, 6, "start:") == 0 ? text.substr(6) : text;
    if (body.size() >= 4 && body.compare(body.size() - 4, 4, ";end") == 0) {
        body.resize(body.size() - 4);
    }
    for (size_t pos = 0, next = 0; next != std::string::npos; pos = next + 1) {
        next = body.find(';', pos);
        k.r.details.push_back(body.substr(pos, next - pos));
    }
}

void prop(Call& k, const Command& c) {
    if (c.name == "set") {
        return k.make(LIBRARY_FUNCTION(torqHalclient::torqPropertySet), kNotNegative, c.text,
                      c.value);
    }
    k.calls("torqHalclient::torqPropertyGet", c.text);
    char* buffer = torqHalclient::torqPropertyGet(c.text);
    // The buffer is 256 bytes and not cleared when the HAL is out of reach: read no further.
    const std::string value(buffer, strnlen(buffer, 256));
    delete[] buffer;
    k.r.details.push_back(quoted(value));
    k.r.extra["value"] = value;
}

void dump(Call& k, const Command& c) {
    static int32_t (*const kDumps[])() = {
            torqHalclient::torqDumpToDoQueue,    torqHalclient::torqDumpRunMap,
            torqHalclient::torqDumpActiveResMap, torqHalclient::torqDumpResRequest,
            torqHalclient::torqDumpResInfo,      torqHalclient::torqDumpSAInfo,
            torqHalclient::torqDumpPidFdList,    torqHalclient::torqDumpPidfdMonitorMap,
            torqHalclient::torqDumpResRecordList};
    Backend& backend = k.console->backend();
    backend.takeDumpOutput();  // drop anything printed before
    const int32_t first = c.allDumps ? 0 : c.number;
    for (int32_t code = first; code <= (c.allDumps ? 8 : c.number); ++code) {
        if (code != first) k.next();
        k.make(std::string("torqHalclient::torqDump") + dumpName(code), kDumps[code], kZero);
        Json::Value output(Json::arrayValue);
        for (const std::string& line : backend.takeDumpOutput()) {
            k.r.details.push_back(line);
            output.append(line);
        }
        if (backend.simulated()) k.r.extra["output"] = std::move(output);
    }
}

}  // namespace

int Console::fail(int exit, const std::string& message) {
    out_.error(message, exit);
    return exit;
}

int Console::done(const Command& c, const std::string& text, Json::Value json) {
    json["command"] = c.word;
    json["ok"] = true;
    out_.message(text, json);
    return kExitOk;
}

int Console::call(const Command& c, const char* origin, const std::function<void(Call&)>& fill) {
    Call k(this, c.word, origin);
    try {
        fill(k);
    } catch (const Refusal& refusal) {
        return fail(refusal.exit, refusal.why);
    }
    k.finish();
    const bool failed =
            std::any_of(reports_.begin(), reports_.end(), [](const Report& r) { return !r.ok; });
    return failed ? kExitFailed : kExitOk;
}

int Console::runShell(std::istream& in, bool interactive) {
    int result = kExitOk;
    std::string line;
    for (size_t lineNo = 1;; ++lineNo) {
        if (interactive) out_.raw("torqctl> ");
        if (!std::getline(in, line)) break;
        ParseResult parsed = parseShellLine(line);
        if (!parsed.ok) {
            out_.error("line " + std::to_string(lineNo) + ": " + parsed.error, kExitUsage);
            result = kExitUsage;
            continue;
        }
        if (parsed.command.word.empty()) continue;
        if (!interactive) out_.message("> " + line);  // text only: no object to show
        const int status = execute(parsed.command);
        if (status != kExitOk) result = status;
    }
    if (interactive) out_.raw("\n");
    return result;
}

int Console::execute(const Command& c) {
    reports_.clear();
    if (c.help || c.word == "help") {
        out_.raw(helpText(c));
        return kExitOk;
    }
    if (c.word == "wait") {
        std::this_thread::sleep_for(std::chrono::milliseconds(c.forMs.value_or(0)));
        return kExitOk;
    }
    struct Row {
        const char* word;
        const char* origin;
        void (*fill)(Call& k, const Command& c);
        int (Console::*own)(const Command& c) = nullptr;
    };
    static const Row kCommands[] = {
            {"actions", nullptr, nullptr, &Console::actions},
            {"acquire", "wrapper", acquire},
            {"acquire-id", "zel",
             [](Call& k, const Command& c) {
                 k.make(LIBRARY_FUNCTION(ZelEventAcquire), kHandle, c.number, c.text, c.identity,
                        static_cast<int32_t>(c.duration), libraryResources(c.resources));
             }},
            {"res-acquire", "zel",
             [](Call& k, const Command& c) {
                 const auto duration = static_cast<int32_t>(c.duration);
                 if (c.platform) {
                     k.make(LIBRARY_FUNCTION(ZelPlatformResAcquire), kHandle,
                            libraryResources(c.resources), 0, c.identity, c.text, duration);
                 } else {
                     k.make(LIBRARY_FUNCTION(ZelResAcquire), kHandle, libraryResources(c.resources),
                            0, c.identity, duration);
                 }
             }},
            {"release", nullptr, nullptr, &Console::release},
            {"resctl", "halclient",
             [](Call& k, const Command& c) {
                 k.request(c, LIBRARY_FUNCTION(torqHalclient::torqResCtlRequest), c.param,
                           static_cast<int32_t>(c.duration),
                           libraryResources<std::list<ZelClient::Resource>>(c.resources), c.option,
                           c.level, c.tag);
             }},
            {"resctl-path", "halclient", resCtlPath},
            {"sactl", "sa",
             [](Call& k, const Command& c) {
                 k.request(c, LIBRARY_FUNCTION(torqHalclient::torqSACtlRequest), c.param,
                           static_cast<int32_t>(c.duration), HexId{c.number}, c.option, c.level,
                           c.tag);
             }},
            {"state", nullptr, state},
            {"state-path", nullptr, statePath},
            {"listen", nullptr, nullptr, &Console::listen},
            {"unlisten", nullptr, nullptr, &Console::release},
            {"thermal", nullptr,
             [](Call& k, const Command& c) {
                 k.calls("torqHalclient::torqThermalNotify", c.resources, c.tag);
                 auto list = libraryResources<std::list<ZelClient::Resource>>(c.resources);
                 k.returned(torqHalclient::torqThermalNotify(list, c.tag), kZero);
             }},
            {"thermal-listen", nullptr, nullptr, &Console::listen},
            {"thermal-unlisten", nullptr, nullptr, &Console::release},
            {"notify", nullptr,
             [](Call& k, const Command& c) {
                 k.make(LIBRARY_FUNCTION(ZelNotifyWapper), kZero, c.notifyName, c.number, c.number2,
                        c.number3, 0, 0, c.text);
             }},
            {"zel-notify", nullptr,
             [](Call& k, const Command& c) {
                 k.make(LIBRARY_FUNCTION(ZelNotify), kNotMinusOne, c.number, c.number2, c.ids);
             }},
            {"rule", nullptr,
             [](Call& k, const Command& c) {
                 k.make(LIBRARY_FUNCTION(zelRuleCtl), kNotMinusOne, c.number, c.number2,
                        libraryResources(c.resources));
             }},
            {"sysinfo", nullptr,
             [](Call& k, const Command& c) {
                 k.make(LIBRARY_FUNCTION(setRelatedSysInfo), kNotMinusOne, c.number, c.value64);
             }},
            {"history", nullptr, history},
            {"pm", nullptr, pm},
            {"dump", nullptr, dump},
            {"prop", nullptr, prop},
            {"init", nullptr,
             [](Call& k, const Command&) {
                 k.make(LIBRARY_FUNCTION(torqHalclient::torq_init), kZero);
                 k.next();
                 k.make(LIBRARY_FUNCTION(zelInit), kZero);
             }},
            {"journal", nullptr, nullptr, &Console::journal},
            {"kill-hal", nullptr, nullptr, &Console::killHal},
            {"restart-hal", nullptr, nullptr, &Console::restartHal},
    };
    const Row* row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                  [&](const Row& r) { return r.word == c.word; });
    if (row == std::end(kCommands)) return fail(kExitUsage, "'" + c.word + "' cannot run here");
    const int result = row->own != nullptr
                               ? (this->*row->own)(c)
                               : call(c, row->origin, [&](Call& k) { row->fill(k, c); });
    releaseHeld();
    return result;
}

int Console::actions(const Command& c) {
    Json::Value list(Json::arrayValue);
    std::string lines;
    const std::string pattern = lower(c.name);
    for (size_t i = 0; i < gActionList.size(); ++i) {
        if (!pattern.empty() && lower(gActionList[i]).find(pattern) == std::string::npos) continue;
        char number[32];
        snprintf(number, sizeof(number), "\n%5zu  ", i);
        lines += number + gActionList[i];
        list.append(jsonObject({{"id", static_cast<Json::UInt64>(i)}, {"name", gActionList[i]}}));
    }
    out_.message("event id  action (" + std::to_string(list.size()) + " of " +
                         std::to_string(gActionList.size()) + ")" + lines,
                 jsonObject({{"command", "actions"},
                             {"pattern", c.name},
                             {"count", list.size()},
                             {"actions", list}}));
    return list.empty() ? kExitFailed : kExitOk;
}

int Console::listen(const Command& c) {
    const bool thermal = c.word == "thermal-listen";
    const char* const sinkName = thermal ? "thermal listener" : "listener";
    const bool kept = shellMode_ && !c.forMs;
    int32_t handle = 0;
    const int status = call(c, sinkName, [&](Call& k) {
        // The library keeps the object for as long as the listener is registered.
        const auto& sink = k.sink = std::make_shared<CallbackSink>(this, sinkName);
        if (thermal) {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqThermalListeningRegister), kHandle, c.ids,
                   sink);
        } else if (!c.paths.empty()) {
            k.make(LIBRARY_FUNCTION(torqHalclient::torq_res_listening_register_by_path), kHandle,
                   pathsOf(c.paths), c.tag, sink);
        } else {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqResListeningRegister), kHandle,
                   unsetList(c.ids), c.tag, sink);
        }
        handle = *k.handle;
    });
    if (handle < 1 || kept) return status;
    const int64_t ms = c.forMs.value_or(kDefaultListenMs);
    if (ms > 0) out_.message("listening for " + std::to_string(ms) + " ms");
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    Command stop = c;  // the listener it does not keep
    stop.word = thermal ? "thermal-unlisten" : "unlisten";
    stop.number = handle;
    return release(stop);
}

// release, unlisten and thermal-unlisten. In a shell a handle goes back the way it came, and only
// one this run obtained.
int Console::release(const Command& c) {
    const int32_t handle = c.number;
    const bool thermal = c.word == "thermal-unlisten";
    std::string via = c.word == "release" ? c.via : thermal ? "thermal listener" : "listener";
    const auto it = handles_.find(handle);
    if (shellMode_ && c.word == "release") {
        if (it == handles_.end()) {
            return fail(kExitUsage,
                        "unknown handle " + std::to_string(handle) + " (not obtained in this run)");
        }
        if (it->second.find("listener") != std::string::npos) {
            return fail(kExitUsage,
                        "handle " + std::to_string(handle) + " is a listener: use " +
                                (it->second == "listener" ? "unlisten" : "thermal-unlisten"));
        }
        if (via.empty()) via = it->second;
    } else if (shellMode_ && (it == handles_.end() || it->second != via)) {
        return fail(kExitUsage, "unknown " + via + " handle " + std::to_string(handle));
    }
    const int status = call(c, nullptr, [&](Call& k) {
        if (via == "wrapper") {
            k.make(LIBRARY_FUNCTION(ZelReleaseWapper), kZero, handle);
        } else if (via == "halclient") {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqResCtlRelease), kNotNegative, handle);
        } else if (via == "sa") {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqSACtlRelease), kNotNegative, handle);
        } else if (via == "listener") {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqResListeningUnRegister), kNotNegative,
                   handle);
        } else if (via == "thermal listener") {
            k.make(LIBRARY_FUNCTION(torqHalclient::torqThermalListeningUnregister), kNotNegative,
                   handle);
        } else {
            k.make(LIBRARY_FUNCTION(ZelRelease), kZero, handle);
        }
    });
    if (status == kExitOk) handles_.erase(handle);
    return status;
}

int Console::journal(const Command& /*c*/) {
    if (!backend_.simulated()) return fail(kExitNoHal, "the journal needs the simulator");
    const auto entries = backend_.journalSince(0);
    std::string text;
    for (const auto& e : entries) {
        text += (text.empty() ? "" : "\n") + std::to_string(e.seq) + "  " + e.toString();
    }
    out_.message(text, jsonObject({{"command", "journal"}, {"entries", halJson(entries)}}));
    return kExitOk;
}

int Console::killHal(const Command& c) {
    if (!backend_.simulated()) return fail(kExitNoHal, "kill-hal needs the simulator");
    const uint64_t mark = backend_.journalMark();
    if (!backend_.killHal()) return fail(kExitUsage, "the HAL is not running");
    // Everything the dead HAL granted is gone with it.
    handles_.clear();
    done(c, "the HAL's process was killed");
    for (const auto& e : backend_.journalSince(mark)) out_.message("  " + e.toString());
    return kExitOk;
}

int Console::restartHal(const Command& c) {
    if (!backend_.simulated()) return fail(kExitNoHal, "restart-hal needs the simulator");
    if (restartThread_.joinable()) restartThread_.join();
    if (!c.forMs) {
        if (!backend_.restartHal()) return fail(kExitNoHal, kSimulatorFailed);
        return done(c, "the HAL is running again (a fresh instance)");
    }
    restartPending_ = true;
    const int64_t ms = *c.forMs;
    restartThread_ = std::thread([this, ms] {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        if (!backend_.restartHal()) out_.error(kSimulatorFailed, kExitNoHal);
        restartPending_ = false;
    });
    return done(c, "the HAL will restart in " + std::to_string(ms) + " ms",
                jsonObject({{"after_ms", static_cast<Json::Int64>(ms)}}));
}

}  // namespace torqctl
