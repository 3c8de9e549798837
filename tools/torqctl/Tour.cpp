// The tour is a table of steps. A step is a title and lines, run in order until one fails:
//   CMD => WANT [$name]   run a torqctl command line; WANT is "ok" (exit status 0), "any" (it
//                         made a library call), "handle" (a result of 1 or more) or a number
//                         (the result); $name keeps the result for later lines
//   hal: TEXT             what the HAL received during each call of the last command has TEXT
//   shows: TEXT           a detail line of the last command contains TEXT
//   sim: OPCODE=VALUE     the simulator holds VALUE for OPCODE
//   mark                  callbacks from here on are counted (each step starts with a mark)
//   callback to ...       the next callback since the mark, as torqctl prints it
//   callbacks: N          exactly N callbacks since the mark
//   sleep MS, say: TEXT   pause; print TEXT
//   logged twice: TEXT    the library logged TEXT twice since the step began
// and, where a step needs more, a check of its own run after its lines.

#include "Console.h"

#include <ZelWrapper.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <thread>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

constexpr int64_t kWaitMs = 3000;

struct Step {
    const char* title;
    std::vector<std::string> lines;
    std::function<std::string()> check = nullptr;  // empty when all holds, else what did not
};

bool startsWith(const std::string& text, const std::string& prefix, std::string* rest) {
    if (text.compare(0, prefix.size(), prefix) != 0) return false;
    *rest = text.substr(prefix.size());
    return true;
}

class Tour {
  public:
    explicit Tour(Console& console) : s_(console), out_(console.output()) {}

    int run();

  private:
    void step(const Step& step) {
        ++steps_;
        failure_.clear();
        out_.message("\n== step " + std::to_string(steps_) + ": " + step.title + " ==");
        logMark_ = counts().second;
        runLine("mark");
        for (const std::string& line : step.lines) {
            if (!failed()) runLine(line);
        }
        const std::string why = failed() || !step.check ? "" : step.check();
        expect(why.empty(), why);
        Json::Value j = jsonObject(
                {{"event", "step"}, {"step", steps_}, {"title", step.title}, {"ok", !failed()}});
        if (failed()) j["failure"] = failure_;
        passed_ += failed() ? 0 : 1;
        out_.message(failed() ? "-- FAILED: " + failure_ : "-- ok", j);
    }

    bool failed() const { return !failure_.empty(); }

    // Records `failure` unless `holds` (the first failure of a step stays).
    void expect(bool holds, const std::string& failure) {
        if (!holds && !failed()) failure_ = failure;
    }

    void runLine(std::string line) {
        for (const auto& [name, value] : kept_) {
            for (size_t at; (at = line.find(name)) != std::string::npos;) {
                line.replace(at, name.size(), std::to_string(value));
            }
        }
        std::string rest;
        if (startsWith(line, "hal: ", &rest)) {
            expect(reportsHave(rest, true), "the HAL did not receive " + rest);
        } else if (startsWith(line, "shows: ", &rest)) {
            expect(reportsHave(rest, false), "the output lacks " + rest);
        } else if (startsWith(line, "sim: ", &rest)) {
            expectSim(rest.substr(0, rest.find('=')), rest.substr(rest.find('=') + 1));
        } else if (line == "mark") {
            callbackMark_ = counts().first;
            seen_ = 0;
        } else if (startsWith(line, "callback to ", &rest)) {
            expectCallback(line);
        } else if (startsWith(line, "callbacks: ", &rest)) {
            const size_t count = counts().first - callbackMark_;
            expect(count == std::stoul(rest), std::to_string(count) + " callbacks, not " + rest);
        } else if (startsWith(line, "sleep ", &rest)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(rest)));
        } else if (startsWith(line, "say: ", &rest)) {
            out_.message(rest);
        } else if (startsWith(line, "logged twice: ", &rest)) {
            expect(loggedTwice(rest), "the library did not log \"" + rest + "\" twice");
        } else {
            command(line.substr(0, line.find(" => ")), line.substr(line.find(" => ") + 4));
        }
    }

    void command(const std::string& line, const std::string& want) {
        const ParseResult parsed = parseShellLine(line);
        const int status = parsed.ok ? s_.execute(parsed.command) : kExitUsage;
        const std::string wanted = want.substr(0, want.find(" $"));
        if (wanted == "ok" || s_.reports().empty()) {
            const char* what = wanted == "ok" ? "' failed (status " : "' made no call (status ";
            expect(wanted == "ok" && status == kExitOk,
                   "'" + line + what + std::to_string(status) + ")");
            return;
        }
        const int64_t result = s_.reports().front().result.value_or(0);
        const bool ok = wanted == "any" || (wanted == "handle" && result >= 1) ||
                        (wanted != "handle" && std::to_string(result) == wanted);
        expect(ok, "'" + line + "' returned " + std::to_string(result) + ", not " + wanted);
        if (want.find(" $") != std::string::npos) kept_[want.substr(want.find(" $") + 1)] = result;
    }

    // Whether the last command's reports have `text`: a detail line of one of them, or with `hal`
    // a call the HAL received during each of them.
    bool reportsHave(const std::string& text, bool hal) const {
        const auto has = [&](const Report& r) {
            std::string lines;  // one per line: TEXT never holds a line break
            for (const std::string& d : r.details) lines += hal ? "" : d + "\n";
            static const std::vector<torq_sim::JournalEntry> kNothing;
            for (const auto& e : (hal && r.hal) ? *r.hal : kNothing) {
                if (e.type == torq_sim::JournalEntry::Type::kCall) lines += e.toString() + "\n";
            }
            return lines.find(text) != std::string::npos;
        };
        const std::vector<Report>& all = s_.reports();
        return hal ? std::all_of(all.begin(), all.end(), has)
                   : std::any_of(all.begin(), all.end(), has);
    }

    void expectSim(const std::string& opcode, const std::string& expected) {
        int32_t id = 0;
        parseOpcode(opcode, &id);
        std::optional<std::string> v;
        s_.backend().inspect([&](const torq_sim::SimModel& m) { v = m.value(id); });
        expect(v == expected, "the HAL holds " + torq_sim::hexId(id) + " = " +
                                      (v ? torq_sim::quoted(*v) : std::string("nothing")) +
                                      ", expected " + torq_sim::quoted(expected));
    }

    // The callbacks and the log lines so far.
    std::pair<size_t, size_t> counts() const {
        std::pair<size_t, size_t> n;
        s_.waitUntil(0, [&](const auto& events, const auto& logLines) {
            n = {events.size(), logLines.size()};
            return true;
        });
        return n;
    }

    // Waits for the next callback since the mark and checks how torqctl showed it.
    void expectCallback(const std::string& expected) {
        const size_t index = callbackMark_ + seen_++;
        std::optional<CallbackEvent> e;
        s_.waitUntil(kWaitMs, [&](const auto& events, const auto&) {
            if (events.size() > index) e = events[index];
            return e.has_value();
        });
        expect(e.has_value(), "no " + expected.substr(0, expected.find(':')) + " arrived");
        if (e) expect(describeCallback(*e) == expected, "unexpected " + describeCallback(*e));
    }

    bool loggedTwice(const std::string& message) const {
        return s_.waitUntil(kWaitMs, [&](const auto&, const auto& logLines) {
            return std::count_if(logLines.begin() + static_cast<std::ptrdiff_t>(logMark_),
                                 logLines.end(),
                                 [&](const LogLine& l) { return l.message == message; }) >= 2;
        });
    }

    Console& s_;
    Output& out_;
    std::string failure_;
    std::map<std::string, int64_t> kept_;  // "$camera" -> 1
    size_t callbackMark_ = 0;
    size_t seen_ = 0;  // callbacks checked since the mark
    size_t logMark_ = 0;
    int steps_ = 0;
    int passed_ = 0;
};

int Tour::run() {
    if (!s_.backend().simulated()) {
        out_.error("the tour needs the simulator (it kills and restarts the HAL)", kExitNoHal);
        return kExitNoHal;
    }
    out_.message(
            "A tour of libquarn-zel-client against the reference Torq HAL simulator.\n"
            "Each step shows the library calls, what they returned and what the HAL "
            "received.");
    const Step steps[] = {
            {"the simulated HAL is up",
             {},
             [&]() -> std::string {
                 if (!s_.backend().halUp()) return "the simulator is not running";
                 out_.message("HAL: " + s_.backend().description());
                 return "";
             }},
            {"connect both front ends: torq_init and zelInit", {"init => ok", "hal: init()"}},
            {"the action table: ACTION_CAMERA_OPEN is event 11",
             {"actions CAMERA_OPEN => ok"},
             [&]() -> std::string {
                 if (gActionList.size() == 199 && gActionList[11] == "ACTION_CAMERA_OPEN")
                     return "";
                 return "the table has " + std::to_string(gActionList.size()) + " names";
             }},
            {"wrapper: acquire ACTION_CAMERA_OPEN by name",
             {"acquire ACTION_CAMERA_OPEN --scene tour => handle $camera",
              "hal: request(kind=8 data=[{id=0x0000000b}]", "sim: 0x01010020=1958400"}},
            {"flat API: read the event's resources (ZelMutiResStateRequest)",
             {"state --via zel 0x01010020 0x01020050 => 2", "shows: 0x01010020 = \"1958400\"",
              "shows: 0x01020050 = \"500000000\""}},
            {"torqHalclient: a request with a callback, answered once",
             {"resctl --callback 0x010108a0=60 => handle $request",
              "callback to request #$request: 0x010108a0=\"60\"", "sleep 100", "callbacks: 1"}},
            {"listen: a timed request changes the value, its expiry restores it",
             {"listen 0x010108a0 => handle $listener", "mark",
              "resctl --duration 300 0x010108a0=95 => handle",
              "callback to listener #$listener: 0x010108a0=\"95\"",
              "say: waiting for the 300 ms request to expire",
              "callback to listener #$listener: 0x010108a0=\"60\""}},
            {"listen: a request that changes nothing is not reported",
             {"resctl 0x010108a0=60 => handle", "sleep 300", "callbacks: 0", "sim: 0x010108a0=60"}},
            {"paths: control by path, read by path and by opcode",
             {"resctl-path /proc/sys/walt/cluster1/target_load=75 => handle",
              "hal: value=\"75\" path=\"/proc/sys/walt/cluster1/target_load\"",
              "state-path /proc/sys/walt/cluster1/target_load => 1", "shows: = \"75\"",
              "state 0x010108b0 => 1", "shows: 0x010108b0 = \"75\""}},
            {"thermal: levels reach a thermal listener",
             {"thermal-listen 1 2 => handle $thermal", "mark", "thermal 1=3 2=1 => 0",
              "callback to thermal listener #$thermal: 0x00000001=\"3\" 0x00000002=\"1\"",
              "thermal-unlisten $thermal => 0"}},
            {"wrapper: notification 3 (type 1) becomes rule 200 with status 3",
             {"notify 3 1 => any", "hal: ruleCtl(200, 3, [])"}},
            {"history: record, read through ZelGetHistory, stop",
             {"history on => 0", "sysinfo 4 1024 => any", "history show => 0",
              "shows: sysinfo 4=1024", "history off => 0"}},
            {"power mode and properties",
             {"prop set torq.power_mode 1 => 0", "pm 1 => 1", "pm 0 => 0",
              "prop get torq.power_mode => ok", "shows: \"1\""}},
            {"dump: the HAL's run map shows the camera event",
             {"dump RunMap => 0", "shows: #$camera event 11"}},
            {"release: values fall back to their defaults",
             {"release $camera => any", "hal: release($camera) -> 0", "sim: 0x01010020=710400",
              "unlisten $listener => 0"}},
            {"the HAL dies: both front ends hear of it, the flat API fails fast",
             {"kill-hal => ok", "logged twice: Torq HAL Service died",
              "say: both front ends logged \"Torq HAL Service died\"",
              "acquire ACTION_LAUNCH => -1"}},
            {"restart: both front ends reconnect to the new HAL",
             {"restart-hal => ok", "acquire ACTION_LAUNCH => handle",
              "resctl 0x010108a0=70 => handle", "sim: 0x01010010=1804800", "sim: 0x010108a0=70"}},
    };
    for (const Step& s : steps) step(s);

    const bool allPassed = passed_ == steps_;
    out_.message(
            "\ntour: " + std::to_string(passed_) + " of " + std::to_string(steps_) + " steps passed",
            jsonObject(
                    {{"event", "tour"}, {"steps", steps_}, {"passed", passed_}, {"ok", allPassed}}));
    return allPassed ? kExitOk : kExitFailed;
}

}  // namespace

int runTour(Console& console) {
    return Tour(console).run();
}

}  // namespace torqctl
