#include "Tour.h"

#include <ZelWrapper.h>

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "torq_sim/Render.h"

namespace torqctl {

namespace {

constexpr int64_t kWaitMs = 3000;
const char kDiedLine[] = "Torq HAL Service died";

class Tour {
  public:
    explicit Tour(Console& console) : s_(console), out_(console.output()) {}

    int run();

  private:
    // Runs one step: `body` returns an empty string when everything held, else what did not.
    void step(const std::string& title, const std::function<std::string()>& body) {
        ++steps_;
        Json::Value j(Json::objectValue);
        j["event"] = "step";
        j["step"] = steps_;
        j["title"] = title;
        out_.message("\n== step " + std::to_string(steps_) + ": " + title + " ==");
        std::string failure = body();
        j["ok"] = failure.empty();
        if (!failure.empty()) j["failure"] = failure;
        if (failure.empty()) {
            ++passed_;
            out_.message("-- ok", j);
        } else {
            out_.message("-- FAILED: " + failure, j);
        }
    }

    // Runs a command line; the result of its first report, or nullopt (with `why`).
    std::optional<int64_t> call(const std::string& line, std::string* why) {
        const int status = s_.run(line);
        if (s_.reports().empty()) {
            *why = "'" + line + "' made no call (status " + std::to_string(status) + ")";
            return std::nullopt;
        }
        const auto& result = s_.reports().front().result;
        return result ? *result : 0;
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

    std::optional<std::string> simValue(int32_t opcode) const {
        std::optional<std::string> value;
        s_.backend().inspect([&](const torq_sim::SimModel& m) { value = m.value(opcode); });
        return value;
    }

    std::string expectSim(int32_t opcode, const std::string& expected) const {
        auto v = simValue(opcode);
        if (v == expected) return "";
        return "the HAL holds " + torq_sim::hexId(opcode) + " = " +
               (v ? torq_sim::quoted(*v) : std::string("nothing")) + ", expected " +
               torq_sim::quoted(expected);
    }

    // Waits for callback number `index` (0-based, over the whole run) and checks it.
    std::string expectCallback(size_t index, const std::string& to, int32_t handle,
                               const std::vector<std::pair<std::string, std::string>>& records) {
        if (!s_.waitForCallbacks(index + 1, kWaitMs)) {
            return "no callback to " + to + " #" + std::to_string(handle) + " arrived";
        }
        const CallbackEvent e = s_.callbacks()[index];
        if (e.to != to || e.handle != handle || e.records != records) {
            return "unexpected " + describeCallback(e);
        }
        return "";
    }

    Console& s_;
    Output& out_;
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

    step("the simulated HAL is up", [&]() -> std::string {
        if (!s_.backend().halUp()) return "the simulator is not running";
        out_.message("HAL: " + s_.backend().description());
        return "";
    });

    step("connect both front ends: torq_init and zelInit", [&]() -> std::string {
        std::string why;
        if (s_.run("init") != kExitOk) return "init failed";
        if (s_.reports().size() != 2 || !halReceived("init()")) return "the HAL saw no init";
        size_t inits = 0;
        for (const Report& r : s_.reports()) {
            for (const auto& e : r.hal) inits += e.method == "init" ? 1 : 0;
        }
        return inits == 2 ? "" : "the HAL saw " + std::to_string(inits) + " init calls, not 2";
    });

    step("the action table: ACTION_CAMERA_OPEN is event 11", [&]() -> std::string {
        if (s_.run("actions CAMERA_OPEN") != kExitOk) return "the action is not listed";
        if (gActionList.size() != 199)
            return "the table has " + std::to_string(gActionList.size()) + " names";
        return gActionList[11] == "ACTION_CAMERA_OPEN" ? "" : "index 11 is " + gActionList[11];
    });

    step("wrapper: acquire ACTION_CAMERA_OPEN by name", [&]() -> std::string {
        std::string why;
        auto h = call("acquire ACTION_CAMERA_OPEN --scene tour", &why);
        if (!h) return why;
        if (*h < 1) return "no handle: " + std::to_string(*h);
        cameraHandle = *h;
        if (!halReceived("request(kind=8 data=[{id=0x0000000b}]")) {
            return "the HAL did not receive event 11 as a kind-8 request";
        }
        return expectSim(0x01010020, "1958400");
    });

    step("flat API: read the event's resources (ZelMutiResStateRequest)", [&]() -> std::string {
        std::string why;
        auto n = call("state --via zel 0x01010020 0x01020050", &why);
        if (!n) return why;
        if (*n != 2) return "filled " + std::to_string(*n) + " values, not 2";
        if (!detailsHave("0x01010020 = \"1958400\"") ||
            !detailsHave("0x01020050 = \"500000000\"")) {
            return "the values differ from the camera event's";
        }
        return "";
    });

    step("torqHalclient: a request with a callback, answered once", [&]() -> std::string {
        std::string why;
        const size_t before = s_.callbacks().size();
        auto h = call("resctl --callback 0x010108a0=60", &why);
        if (!h) return why;
        if (*h < 1) return "no handle";
        std::string bad =
                expectCallback(before, "request", static_cast<int32_t>(*h), {{"0x010108a0", "60"}});
        if (!bad.empty()) return bad;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return s_.callbacks().size() == before + 1 ? "" : "the request was answered twice";
    });

    step("listen: a timed request changes the value, its expiry restores it", [&]() -> std::string {
        std::string why;
        auto l = call("listen 0x010108a0", &why);
        if (!l) return why;
        if (*l < 1) return "no listener handle";
        listener = *l;
        const size_t before = s_.callbacks().size();
        auto h = call("resctl --duration 300 0x010108a0=95", &why);
        if (!h || *h < 1) return "the timed request failed";
        std::string bad = expectCallback(before, "listener", static_cast<int32_t>(listener),
                                         {{"0x010108a0", "95"}});
        if (!bad.empty()) return bad;
        out_.message("waiting for the 300 ms request to expire");
        return expectCallback(before + 1, "listener", static_cast<int32_t>(listener),
                              {{"0x010108a0", "60"}});
    });

    step("listen: a request that changes nothing is not reported", [&]() -> std::string {
        std::string why;
        const size_t before = s_.callbacks().size();
        auto h = call("resctl 0x010108a0=60", &why);
        if (!h || *h < 1) return "the request failed";
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        if (s_.callbacks().size() != before) return "the listener was called without a change";
        return expectSim(0x010108a0, "60");
    });

    step("paths: control by path, read by path and by opcode", [&]() -> std::string {
        std::string why;
        auto h = call("resctl-path /proc/sys/walt/cluster1/target_load=75", &why);
        if (!h || *h < 1) return "the path request failed";
        if (!halReceived("value=\"75\" path=\"/proc/sys/walt/cluster1/target_load\"")) {
            return "the HAL did not receive the path entry";
        }
        auto n = call("state-path /proc/sys/walt/cluster1/target_load", &why);
        if (!n || *n != 1 || !detailsHave("= \"75\"")) return "reading by path did not give 75";
        auto m = call("state 0x010108b0", &why);
        if (!m || *m != 1 || !detailsHave("0x010108b0 = \"75\"")) {
            return "reading the same resource by opcode did not give 75";
        }
        return "";
    });

    step("thermal: levels reach a thermal listener", [&]() -> std::string {
        std::string why;
        auto t = call("thermal-listen 1 2", &why);
        if (!t || *t < 1) return "no thermal listener";
        const size_t before = s_.callbacks().size();
        auto r = call("thermal 1=3 2=1", &why);
        if (!r || *r != 0) return "torqThermalNotify failed";
        std::string bad = expectCallback(before, "thermal listener", static_cast<int32_t>(*t),
                                         {{torq_sim::hexId(1), "3"}, {torq_sim::hexId(2), "1"}});
        if (!bad.empty()) return bad;
        auto u = call("thermal-unlisten " + std::to_string(*t), &why);
        return u && *u == 0 ? "" : "thermal unregistration failed";
    });

    step("wrapper: notification 3 (type 1) becomes rule 200 with status 3", [&]() -> std::string {
        std::string why;
        if (!call("notify 3 1", &why)) return why;
        if (!halReceived("ruleCtl(200, 3, [])")) return "the HAL received no ruleCtl(200, 3)";
        std::optional<int32_t> status;
        s_.backend().inspect([&](const torq_sim::SimModel& m) { status = m.ruleStatus(200); });
        return status == 3 ? "" : "the HAL's rule 200 is not at status 3";
    });

    step("history: record, read through ZelGetHistory, stop", [&]() -> std::string {
        std::string why;
        auto on = call("history on", &why);
        if (!on || *on != 0) return "history on failed";
        if (!call("sysinfo 4 1024", &why)) return why;
        auto show = call("history show", &why);
        if (!show || *show != 0) return "ZelGetHistory failed";
        if (!detailsHave("sysinfo 4=1024")) return "the history lacks the sysinfo call";
        auto off = call("history off", &why);
        return off && *off == 0 ? "" : "history off failed";
    });

    step("power mode and properties", [&]() -> std::string {
        std::string why;
        auto set = call("prop set torq.power_mode 1", &why);
        if (!set || *set != 0) return "propertySet failed";
        auto pm1 = call("pm 1", &why);
        if (!pm1 || *pm1 != 1) return "ZelGetPMStatus(1) is not 1";
        auto pm0 = call("pm 0", &why);
        if (!pm0 || *pm0 != 0) return "ZelGetPMStatus(0) is not 0";
        if (s_.run("prop get torq.power_mode") != kExitOk || !detailsHave("\"1\"")) {
            return "torqPropertyGet does not read 1";
        }
        return "";
    });

    step("dump: the HAL's run map shows the camera event", [&]() -> std::string {
        std::string why;
        auto d = call("dump RunMap", &why);
        if (!d || *d != 0) return "torqDumpRunMap failed";
        const std::string line = "#" + std::to_string(cameraHandle) + " event 11";
        return detailsHave(line) ? "" : "the dump lacks '" + line + "'";
    });

    step("release: values fall back to their defaults", [&]() -> std::string {
        std::string why;
        if (!call("release " + std::to_string(cameraHandle), &why)) return why;
        if (!halReceived("release(" + std::to_string(cameraHandle) + ") -> 0")) {
            return "the HAL did not release the camera request";
        }
        std::string bad = expectSim(0x01010020, "710400");
        if (!bad.empty()) return bad;
        auto u = call("unlisten " + std::to_string(listener), &why);
        return u && *u == 0 ? "" : "unlisten failed";
    });

    step("the HAL dies: both front ends hear of it, the flat API fails fast", [&]() -> std::string {
        std::string why;
        const size_t died = s_.countLog(kDiedLine);
        if (s_.run("kill-hal") != kExitOk) return "kill-hal failed";
        if (!s_.waitForLog(kDiedLine, died + 2, kWaitMs)) {
            return "the library did not log \"" + std::string(kDiedLine) + "\" twice";
        }
        out_.message("both front ends logged \"" + std::string(kDiedLine) + "\"");
        auto h = call("acquire ACTION_LAUNCH", &why);
        if (!h) return why;
        return *h == -1 ? "" : "an acquisition without a HAL returned " + std::to_string(*h);
    });

    step("restart: both front ends reconnect to the new HAL", [&]() -> std::string {
        std::string why;
        if (s_.run("restart-hal") != kExitOk) return "restart-hal failed";
        auto h = call("acquire ACTION_LAUNCH", &why);
        if (!h || *h < 1) return "the wrapper did not reconnect";
        auto r = call("resctl 0x010108a0=70", &why);
        if (!r || *r < 1) return "torqHalclient did not reconnect";
        std::string bad = expectSim(0x01010010, "1804800");
        if (!bad.empty()) return bad;
        return expectSim(0x010108a0, "70");
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
