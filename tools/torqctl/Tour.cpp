#include "Tour.h"

#include <ZelWrapper.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

constexpr int64_t kWaitMs = 3000;
const char kDiedLine[] = "Torq HAL Service died";

using Records = std::vector<std::pair<std::string, std::string>>;

bool isHandle(int64_t v) {
    return v >= 1;
}

bool isZero(int64_t v) {
    return v == 0;
}

// A step's checks, in the order it makes them. The first that fails is the step's failure;
// after it the step runs no further command, so what it prints ends at the fault.
class Tour {
  public:
    explicit Tour(Console& console) : s_(console), out_(console.output()) {}

    int run();

  private:
    void step(const std::string& title, const std::function<void()>& body) {
        ++steps_;
        failure_.clear();
        Json::Value j(Json::objectValue);
        j["event"] = "step";
        j["step"] = steps_;
        j["title"] = title;
        out_.message("\n== step " + std::to_string(steps_) + ": " + title + " ==");
        body();
        j["ok"] = failure_.empty();
        if (!failure_.empty()) j["failure"] = failure_;
        if (failure_.empty()) {
            ++passed_;
            out_.message("-- ok", j);
        } else {
            out_.message("-- FAILED: " + failure_, j);
        }
    }

    bool failed() const { return !failure_.empty(); }

    // Records `failure` unless `holds`; false when this or an earlier check failed.
    bool expect(bool holds, const std::string& failure) {
        if (!holds && !failed()) failure_ = failure;
        return !failed();
    }

    // Runs a command line that must work, unless a check failed already.
    void run(const std::string& line, const std::string& failure) {
        if (!failed()) expect(s_.run(line) == kExitOk, failure);
    }

    // Runs a command line whose first call's result must satisfy `ok`; that result (0 for a
    // void call, or when skipped).
    int64_t call(const std::string& line, bool (*ok)(int64_t), const std::string& failure) {
        if (failed()) return 0;
        const int status = s_.run(line);
        if (!expect(!s_.reports().empty(),
                    "'" + line + "' made no call (status " + std::to_string(status) + ")")) {
            return 0;
        }
        const int64_t result = s_.reports().front().result.value_or(0);
        expect(ok == nullptr || ok(result), failure);
        return result;
    }

    bool detailsHave(const std::string& text) const {
        for (const Report& r : s_.reports()) {
            for (const std::string& d : r.details) {
                if (d.find(text) != std::string::npos) return true;
            }
        }
        return false;
    }

    bool halReceived(const std::string& text) const {
        for (const Report& r : s_.reports()) {
            for (const auto& e : r.hal) {
                if (e.type == torq_sim::JournalEntry::Type::kCall &&
                    e.toString().find(text) != std::string::npos) {
                    return true;
                }
            }
        }
        return false;
    }

    void expectSim(int32_t opcode, const std::string& expected) {
        std::optional<std::string> v;
        s_.backend().inspect([&](const torq_sim::SimModel& m) { v = m.value(opcode); });
        expect(v == expected, "the HAL holds " + torq_sim::hexId(opcode) + " = " +
                                      (v ? torq_sim::quoted(*v) : std::string("nothing")) +
                                      ", expected " + torq_sim::quoted(expected));
    }

    size_t callbackCount() const {
        size_t count = 0;
        s_.waitUntil(0, [&](const auto& events, const auto&) {
            count = events.size();
            return true;
        });
        return count;
    }

    // How many times the library logged `message`; after waiting at most `timeoutMs` for `least`.
    size_t logCount(const std::string& message, size_t least, int64_t timeoutMs) const {
        size_t count = 0;
        s_.waitUntil(timeoutMs, [&](const auto&, const auto& logLines) {
            count = std::count_if(logLines.begin(), logLines.end(),
                                  [&](const LogLine& l) { return l.message == message; });
            return count >= least;
        });
        return count;
    }

    // Waits for callback number `index` (0-based, over the whole run) and checks it.
    void expectCallback(size_t index, const std::string& to, int64_t handle,
                        const Records& records) {
        std::optional<CallbackEvent> e;
        if (!failed()) {
            s_.waitUntil(kWaitMs, [&](const auto& events, const auto&) {
                if (events.size() > index) e = events[index];
                return e.has_value();
            });
        }
        if (expect(e.has_value(),
                   "no callback to " + to + " #" + std::to_string(handle) + " arrived")) {
            expect(e->to == to && e->handle == handle && e->records == records,
                   "unexpected " + describeCallback(*e));
        }
    }

    Console& s_;
    Output& out_;
    std::string failure_;
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
    int64_t cameraHandle = 0;
    int64_t listener = 0;

    step("the simulated HAL is up", [&] {
        if (expect(s_.backend().halUp(), "the simulator is not running")) {
            out_.message("HAL: " + s_.backend().description());
        }
    });

    step("connect both front ends: torq_init and zelInit", [&] {
        run("init", "init failed");
        expect(s_.reports().size() == 2 && halReceived("init()"), "the HAL saw no init");
        size_t inits = 0;
        for (const Report& r : s_.reports()) {
            for (const auto& e : r.hal) inits += e.method == "init" ? 1 : 0;
        }
        expect(inits == 2, "the HAL saw " + std::to_string(inits) + " init calls, not 2");
    });

    step("the action table: ACTION_CAMERA_OPEN is event 11", [&] {
        run("actions CAMERA_OPEN", "the action is not listed");
        expect(gActionList.size() == 199,
               "the table has " + std::to_string(gActionList.size()) + " names");
        expect(gActionList[11] == "ACTION_CAMERA_OPEN", "index 11 is " + gActionList[11]);
    });

    step("wrapper: acquire ACTION_CAMERA_OPEN by name", [&] {
        cameraHandle = call("acquire ACTION_CAMERA_OPEN --scene tour", isHandle, "no handle");
        expect(halReceived("request(kind=8 data=[{id=0x0000000b}]"),
               "the HAL did not receive event 11 as a kind-8 request");
        expectSim(0x01010020, "1958400");
    });

    step("flat API: read the event's resources (ZelMutiResStateRequest)", [&] {
        call(
                "state --via zel 0x01010020 0x01020050", [](int64_t n) { return n == 2; },
                "did not fill 2 values");
        expect(detailsHave("0x01010020 = \"1958400\"") && detailsHave("0x01020050 = \"500000000\""),
               "the values differ from the camera event's");
    });

    step("torqHalclient: a request with a callback, answered once", [&] {
        const size_t before = callbackCount();
        const int64_t h = call("resctl --callback 0x010108a0=60", isHandle, "no handle");
        expectCallback(before, "request", h, {{"0x010108a0", "60"}});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        expect(callbackCount() == before + 1, "the request was answered twice");
    });

    step("listen: a timed request changes the value, its expiry restores it", [&] {
        listener = call("listen 0x010108a0", isHandle, "no listener handle");
        const size_t before = callbackCount();
        call("resctl --duration 300 0x010108a0=95", isHandle, "the timed request failed");
        expectCallback(before, "listener", listener, {{"0x010108a0", "95"}});
        if (!failed()) out_.message("waiting for the 300 ms request to expire");
        expectCallback(before + 1, "listener", listener, {{"0x010108a0", "60"}});
    });

    step("listen: a request that changes nothing is not reported", [&] {
        const size_t before = callbackCount();
        call("resctl 0x010108a0=60", isHandle, "the request failed");
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        expect(callbackCount() == before, "the listener was called without a change");
        expectSim(0x010108a0, "60");
    });

    step("paths: control by path, read by path and by opcode", [&] {
        call("resctl-path /proc/sys/walt/cluster1/target_load=75", isHandle,
             "the path request failed");
        expect(halReceived("value=\"75\" path=\"/proc/sys/walt/cluster1/target_load\""),
               "the HAL did not receive the path entry");
        call(
                "state-path /proc/sys/walt/cluster1/target_load", [](int64_t n) { return n == 1; },
                "reading by path did not give 75");
        expect(detailsHave("= \"75\""), "reading by path did not give 75");
        call(
                "state 0x010108b0", [](int64_t n) { return n == 1; },
                "reading the same resource by opcode did not give 75");
        expect(detailsHave("0x010108b0 = \"75\""),
               "reading the same resource by opcode did not give 75");
    });

    step("thermal: levels reach a thermal listener", [&] {
        const int64_t t = call("thermal-listen 1 2", isHandle, "no thermal listener");
        const size_t before = callbackCount();
        call("thermal 1=3 2=1", isZero, "torqThermalNotify failed");
        expectCallback(before, "thermal listener", t,
                       {{torq_sim::hexId(1), "3"}, {torq_sim::hexId(2), "1"}});
        call("thermal-unlisten " + std::to_string(t), isZero, "thermal unregistration failed");
    });

    step("wrapper: notification 3 (type 1) becomes rule 200 with status 3", [&] {
        call("notify 3 1", nullptr, "");
        expect(halReceived("ruleCtl(200, 3, [])"), "the HAL received no ruleCtl(200, 3)");
        std::optional<int32_t> status;
        s_.backend().inspect([&](const torq_sim::SimModel& m) { status = m.ruleStatus(200); });
        expect(status == 3, "the HAL's rule 200 is not at status 3");
    });

    step("history: record, read through ZelGetHistory, stop", [&] {
        call("history on", isZero, "history on failed");
        call("sysinfo 4 1024", nullptr, "");
        call("history show", isZero, "ZelGetHistory failed");
        expect(detailsHave("sysinfo 4=1024"), "the history lacks the sysinfo call");
        call("history off", isZero, "history off failed");
    });

    step("power mode and properties", [&] {
        call("prop set torq.power_mode 1", isZero, "propertySet failed");
        call(
                "pm 1", [](int64_t v) { return v == 1; }, "ZelGetPMStatus(1) is not 1");
        call("pm 0", isZero, "ZelGetPMStatus(0) is not 0");
        run("prop get torq.power_mode", "torqPropertyGet failed");
        expect(detailsHave("\"1\""), "torqPropertyGet does not read 1");
    });

    step("dump: the HAL's run map shows the camera event", [&] {
        call("dump RunMap", isZero, "torqDumpRunMap failed");
        const std::string line = "#" + std::to_string(cameraHandle) + " event 11";
        expect(detailsHave(line), "the dump lacks '" + line + "'");
    });

    step("release: values fall back to their defaults", [&] {
        call("release " + std::to_string(cameraHandle), nullptr, "");
        expect(halReceived("release(" + std::to_string(cameraHandle) + ") -> 0"),
               "the HAL did not release the camera request");
        expectSim(0x01010020, "710400");
        call("unlisten " + std::to_string(listener), isZero, "unlisten failed");
    });

    step("the HAL dies: both front ends hear of it, the flat API fails fast", [&] {
        const size_t died = logCount(kDiedLine, 0, 0);
        run("kill-hal", "kill-hal failed");
        if (expect(failed() || logCount(kDiedLine, died + 2, kWaitMs) >= died + 2,
                   "the library did not log \"" + std::string(kDiedLine) + "\" twice")) {
            out_.message("both front ends logged \"" + std::string(kDiedLine) + "\"");
        }
        call(
                "acquire ACTION_LAUNCH", [](int64_t h) { return h == -1; },
                "an acquisition without a HAL returned a handle");
    });

    step("restart: both front ends reconnect to the new HAL", [&] {
        run("restart-hal", "restart-hal failed");
        call("acquire ACTION_LAUNCH", isHandle, "the wrapper did not reconnect");
        call("resctl 0x010108a0=70", isHandle, "torqHalclient did not reconnect");
        expectSim(0x01010010, "1804800");
        expectSim(0x010108a0, "70");
    });

    const bool allPassed = passed_ == steps_;
    Json::Value j(Json::objectValue);
    j["event"] = "tour";
    j["steps"] = steps_;
    j["passed"] = passed_;
    j["ok"] = allPassed;
    out_.message("\ntour: " + std::to_string(passed_) + " of " + std::to_string(steps_) +
                         " steps passed",
                 j);
    return allPassed ? kExitOk : kExitFailed;
}

}  // namespace

int runTour(Console& console) {
    return Tour(console).run();
}

}  // namespace torqctl
