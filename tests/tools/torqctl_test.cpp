// torqctl end to end: each run is a fresh process with its own embedded simulator.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "JsonLite.h"
#include "Subprocess.h"

namespace torqctl_test {
namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Every stdout line must be one JSON object.
std::vector<JValue> jsonLines(const RunResult& r) {
    std::vector<JValue> out;
    for (const std::string& line : r.outLines()) {
        JValue v;
        EXPECT_TRUE(JsonReader::parse(line, &v)) << "not JSON: " << line;
        EXPECT_EQ(v.type, JValue::Type::kObject) << line;
        out.push_back(std::move(v));
    }
    return out;
}

std::vector<JValue> reportsOf(const std::vector<JValue>& lines, const std::string& command) {
    std::vector<JValue> out;
    for (const JValue& v : lines) {
        if (v["command"].text == command && v.has("call")) out.push_back(v);
    }
    return out;
}

// Whether some report of `lines` shows the HAL receiving a call whose text contains `text`.
bool halReceived(const std::vector<JValue>& lines, const std::string& method,
                 const std::string& args) {
    for (const JValue& v : lines) {
        for (const JValue& h : v["hal"].items) {
            if (h["type"].text == "call" && h["method"].text == method &&
                contains(h["args"].text, args)) {
                return true;
            }
        }
    }
    return false;
}

void expectOneErrorLine(const RunResult& r, int exitCode, const std::string& part) {
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.exitCode, exitCode) << r.err;
    const auto lines = r.errLines();
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("torqctl: ", 0), 0u) << lines[0];
    EXPECT_TRUE(contains(lines[0], part)) << lines[0];
}

TEST(TorqctlCli, HelpListsEveryCommand) {
    RunResult r = torqctl({"help"});
    EXPECT_EQ(r.exitCode, 0);
    for (const char* command :
         {"actions", "acquire",     "acquire-id",  "res-acquire",    "release",
          "resctl",  "resctl-path", "sactl",       "state",          "state-path",
          "listen",  "unlisten",    "thermal",     "thermal-listen", "thermal-unlisten",
          "notify",  "zel-notify",  "rule",        "sysinfo",        "history",
          "pm",      "dump",        "prop",        "init",           "journal",
          "wait",    "kill-hal",    "restart-hal", "shell",          "tour"}) {
        EXPECT_TRUE(contains(r.out, "\n  " + std::string(command) + " ") ||
                    contains(r.out, "\n  " + std::string(command) + "\n"))
                << command;
        RunResult one = torqctl({command, "--help"});
        EXPECT_EQ(one.exitCode, 0) << command;
        EXPECT_EQ(one.out.rfind("Usage: torqctl " + std::string(command), 0), 0u) << one.out;
        EXPECT_TRUE(one.err.empty());
    }
}

TEST(TorqctlCli, BadInputIsOneLineOnStandardError) {
    struct Case {
        std::vector<std::string> args;
        int exit;
        std::string part;
    };
    const std::vector<Case> cases = {
            {{}, 2, "missing command"},
            {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
            {{"acquire", "ACTION_NOPE"}, 2, "unknown action"},
            {{"resctl", "0xzz=1"}, 2, "malformed opcode '0xzz'"},
            {{"resctl", "0x010108a0"}, 2, "expected OPCODE=VALUE"},
            {{"resctl", "0x010108a0="}, 2, "missing value"},
            {{"resctl"}, 2, "missing argument"},
            {{"sactl", "--level", "high", "1"}, 2, "malformed number for --level"},
            {{"release"}, 2, "missing argument"},
            {{"dump", "99"}, 2, "unknown dump table"},
            {{"shell", "/nonexistent/script"}, 2, "cannot read"},
            {{"--no-sim", "state", "0x010108a0"}, 3, "no Torq HAL is declared"},
    };
    for (const Case& c : cases) {
        const auto start = std::chrono::steady_clock::now();
        RunResult r = torqctl(c.args, "", 20000);
        SCOPED_TRACE(c.part);
        expectOneErrorLine(r, c.exit, c.part);
        EXPECT_TRUE(r.out.empty()) << r.out;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    }
}

TEST(TorqctlCli, ActionsListTheTableAndFilter) {
    RunResult all = torqctl({"actions"});
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_TRUE(contains(all.out, "(199 of 199)"));
    EXPECT_TRUE(contains(all.out, "   11  ACTION_CAMERA_OPEN\n"));
    EXPECT_TRUE(contains(all.out, "  198  "));
    auto lines = jsonLines(torqctl({"--json", "actions", "aps_capture_l1"}));
    ASSERT_EQ(lines.size(), 1u);
    ASSERT_EQ(lines[0]["count"].asInt(), 2);  // the table names it twice
    EXPECT_EQ(lines[0]["actions"][0]["id"].asInt(), 91);
    EXPECT_EQ(lines[0]["actions"][1]["id"].asInt(), 106);
    EXPECT_EQ(torqctl({"actions", "NO_SUCH_ACTION"}).exitCode, 1);
}

TEST(TorqctlCli, AcquireByNameAndByIdReachTheHalAsEvents) {
    RunResult named = torqctl({"acquire", "ACTION_CAMERA_OPEN", "--scene", "cam", "--timeout", "9"});
    EXPECT_EQ(named.exitCode, 0) << named.err;
    EXPECT_TRUE(
            contains(named.out, "ZelEventAcquireWrapper(\"VARDEX_ACTION_CAMERA_OPEN\", \"cam\""));
    EXPECT_TRUE(contains(named.out, ") = 1\n"));
    EXPECT_TRUE(contains(named.out,
                         "HAL received: request(kind=8 data=[{id=0x0000000b}] "
                         "duration=9 pkg=\"cam\" identity=\"torqctl\") -> 1"));

    auto prefixed = jsonLines(torqctl({"--json", "acquire", "VARDEX_ACTION_CAMERA_MULTI_SCENE"}));
    ASSERT_EQ(prefixed.size(), 1u);
    EXPECT_EQ(prefixed[0]["event_id"].asInt(), 102);  // the first of its two places

    auto byId = jsonLines(torqctl({"--json", "acquire-id", "42", "--pkg", "p", "0x010108b0=7"}));
    ASSERT_EQ(byId.size(), 1u);
    EXPECT_EQ(byId[0]["call"].text, "ZelEventAcquire");
    EXPECT_EQ(byId[0]["result"].asInt(), 1);
    EXPECT_TRUE(halReceived(byId, "request",
                            "kind=8 data=[{id=0x0000002a} {id=0x010108b0 value=\"7\"}]"));

    // The simulator refuses ids beyond the action table; the flat API reports -1.
    RunResult refused = torqctl({"acquire-id", "500"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(contains(refused.out, ") = -1  [failed]"));
}

TEST(TorqctlCli, ResourceAcquisitionKinds) {
    auto plain = jsonLines(torqctl({"--json", "res-acquire", "0x01011040=2"}));
    ASSERT_EQ(plain.size(), 1u);
    EXPECT_EQ(plain[0]["call"].text, "ZelResAcquire");
    EXPECT_TRUE(halReceived(plain, "request", "kind=1 data=[{id=0x01011040 value=\"2\"}] pkg=\"\""));
    auto platform = jsonLines(torqctl({"--json", "res-acquire", "--pkg", "com.x", "0x01011040=2"}));
    ASSERT_EQ(platform.size(), 1u);
    EXPECT_EQ(platform[0]["call"].text, "ZelPlatformResAcquire");
    EXPECT_TRUE(halReceived(platform, "request", "kind=12 "));
}

TEST(TorqctlCli, ResourceControlWithCallbackPrintsTheAnswer) {
    RunResult r =
            torqctl({"resctl", "--callback", "--level", "1", "--duration", "5000", "0x010108a0=50"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(contains(r.out,
                         "torqHalclient::torqResCtlRequest(-1, 5000, {0x010108a0=\"50\"}, "
                         "-1, 1, 0, callback) = 1"));
    EXPECT_TRUE(contains(r.out, "flag=true option=-1 duration=5000 param=-1 callback=yes) -> 1"));
    EXPECT_TRUE(contains(r.out, "callback to request #1: 0x010108a0=\"50\"\n"));

    auto sa = jsonLines(torqctl({"--json", "sactl", "7", "--callback"}));
    ASSERT_EQ(sa.size(), 2u);
    EXPECT_EQ(sa[0]["call"].text, "torqHalclient::torqSACtlRequest");
    EXPECT_EQ(sa[1]["event"].text, "callback");
    EXPECT_EQ(sa[1]["records"][0]["id"].text, "0x00000007");
}

TEST(TorqctlCli, PathsControlAndState) {
    const std::string path = "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq";
    auto ctl = jsonLines(torqctl({"--json", "resctl-path", "--callback", path + "=999"}));
    ASSERT_EQ(ctl.size(), 2u);
    EXPECT_EQ(ctl[0]["call"].text, "torqHalclient::torq_resctl_request_with_callback_by_path");
    EXPECT_TRUE(halReceived(ctl, "request", "extras=[\"zdbdebug\"]"));
    EXPECT_EQ(ctl[1]["records"][0]["path"].text, path);
    EXPECT_EQ(ctl[1]["records"][0]["value"].text, "999");

    auto map = jsonLines(torqctl({"--json", "state-path", "--map", path + "=x", "/unknown=y"}));
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(map[0]["result"].asInt(), 1);  // a record without a value is skipped
    EXPECT_EQ(map[0]["values"][0]["path"].text, path);
    EXPECT_EQ(map[0]["values"][0]["value"].text, "300000");
}

TEST(TorqctlCli, StateThroughAllThreeForms) {
    auto h = jsonLines(torqctl({"--json", "state", "0x010108a0", "0x7fff0000"}));
    ASSERT_EQ(h.size(), 1u);
    EXPECT_EQ(h[0]["result"].asInt(), 2);
    EXPECT_EQ(h[0]["values"][0]["value"].text, "80");
    EXPECT_EQ(h[0]["values"][1]["value"].text, "");

    auto z = jsonLines(torqctl({"--json", "state", "--via", "zel", "0x010108a0", "0x7fff0000"}));
    ASSERT_EQ(z.size(), 1u);
    EXPECT_EQ(z[0]["call"].text, "ZelMutiResStateRequest");
    EXPECT_EQ(z[0]["result"].asInt(), 1);  // the uncatalogued opcode has no value

    auto one = jsonLines(torqctl({"--json", "state", "--via", "zel-one", "0x010108b0"}));
    ASSERT_EQ(one.size(), 1u);
    EXPECT_TRUE(one[0]["ok"].boolean);
    EXPECT_EQ(one[0]["values"][0]["value"].text, "85");
    RunResult none = torqctl({"state", "--via", "zel-one", "0x7fff0000"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TRUE(contains(none.out, "value left untouched"));
}

TEST(TorqctlCli, ListenForAShortTimeThenUnregister) {
    const auto start = std::chrono::steady_clock::now();
    auto lines = jsonLines(torqctl({"--json", "listen", "--for", "150", "0x010108a0"}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["call"].text, "torqHalclient::torqResListeningRegister");
    EXPECT_EQ(lines[1]["call"].text, "torqHalclient::torqResListeningUnRegister");
    EXPECT_EQ(lines[1]["args"].text, std::to_string(lines[0]["result"].asInt()));
    EXPECT_EQ(lines[1]["result"].asInt(), 0);
}

TEST(TorqctlCli, NotificationsRulesAndSystemInfo) {
    auto wrapped = jsonLines(torqctl({"--json", "notify", "3", "1"}));
    ASSERT_EQ(wrapped.size(), 1u);
    EXPECT_TRUE(halReceived(wrapped, "ruleCtl", "200, 3, []"));

    auto flat = jsonLines(torqctl({"--json", "zel-notify", "3", "7", "10", "20"}));
    EXPECT_TRUE(halReceived(flat, "request",
                            "kind=10 data=[{id=0x00000003 subId=7} {id=0x00000003 subId=7}]"));

    auto rule = jsonLines(torqctl({"--json", "rule", "131", "1", "0x01011040=1"}));
    EXPECT_EQ(rule[0]["result"].asInt(), 0);
    EXPECT_TRUE(halReceived(rule, "ruleCtl", "131, 1, [{id=0x01011040 value=\"1\"}]"));

    auto info = jsonLines(torqctl({"--json", "sysinfo", "4", "-9000000000"}));
    EXPECT_TRUE(halReceived(info, "setRelatedSysInfo", "4, -9000000000"));
}

TEST(TorqctlCli, DumpAllTablesAndProperties) {
    auto lines = jsonLines(torqctl({"--json", "dump", "all"}));
    ASSERT_EQ(lines.size(), 9u);
    for (size_t code = 0; code < lines.size(); ++code) {
        EXPECT_EQ(lines[code]["result"].asInt(), 0);
        ASSERT_FALSE(lines[code]["output"].items.empty());
        EXPECT_EQ(lines[code]["output"][0].text.rfind("dump " + std::to_string(code) + " ", 0), 0u);
    }
    RunResult get = torqctl({"prop", "get", "torq.version"});
    EXPECT_EQ(get.exitCode, 0);
    EXPECT_TRUE(contains(get.out, "\"torq-sim 1.0\""));
    EXPECT_EQ(torqctl({"prop", "set", "torq.version", "2"}).exitCode, 1);  // read-only
    EXPECT_EQ(torqctl({"prop", "set", "vendor.x", "2"}).exitCode, 0);
}

TEST(TorqctlCli, InitConnectsBothFrontEnds) {
    auto lines = jsonLines(torqctl({"--json", "init"}));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["call"].text, "torqHalclient::torq_init");
    EXPECT_EQ(lines[1]["call"].text, "zelInit");
    EXPECT_EQ(lines[1]["result"].asInt(), 0);
    EXPECT_TRUE(halReceived({lines[0]}, "init", ""));
    EXPECT_TRUE(halReceived({lines[1]}, "init", ""));
}

TEST(TorqctlCli, LogLinesOnlyWithTheLogOption) {
    RunResult quiet = torqctl({"resctl", "0x010108a0=1"});
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_TRUE(quiet.err.empty()) << quiet.err;
    EXPECT_FALSE(contains(quiet.out, "log: "));

    RunResult loud = torqctl({"--log", "resctl", "0x010108a0=1"});
    EXPECT_EQ(loud.exitCode, 0);
    EXPECT_TRUE(
            contains(loud.out, "log: I/TORQFramework-lib-vendor: torq client torqResCtlRequest\n"));
    auto lines = jsonLines(torqctl({"--json", "--log", "pm", "0"}));
    bool sawLog = false;
    for (const JValue& v : lines) {
        if (v["event"].text == "log" && v["tag"].text == "[ZEL_CLIENT]" &&
            v["message"].text == "zel client ZelGetPMStatus") {
            sawLog = true;
        }
    }
    EXPECT_TRUE(sawLog);
}

TEST(TorqctlShell, HandlesAndListenersPersistWithinARun) {
    const std::string script =
            "listen 0x010108a0\n"
            "resctl --duration 100 0x010108a0=95\n"
            "wait 400\n"
            "acquire ACTION_TOUCH_BOOST\n"
            "release 3\n"
            "unlisten 1\n"
            "history on\n"
            "thermal-listen 5\n"
            "thermal 5=2\n"
            "history show\n"
            "prop set torq.power_mode 3\n"
            "pm 3\n";
    RunResult r = torqctl({"--json", "shell"}, script);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    auto lines = jsonLines(r);
    std::vector<std::string> callbacks;
    for (const JValue& v : lines) {
        if (v["event"].text == "callback") {
            callbacks.push_back(v["to"].text + " " + std::to_string(v["handle"].asInt()) + " " +
                                v["records"][0]["value"].text);
        }
    }
    // The change, then the expiry's fallback, then the thermal level.
    EXPECT_EQ(callbacks,
              (std::vector<std::string>{"listener 1 95", "listener 1 80", "thermal listener 5 2"}));
    auto releases = reportsOf(lines, "release");
    ASSERT_EQ(releases.size(), 1u);
    EXPECT_EQ(releases[0]["call"].text, "ZelReleaseWapper");  // the front end that acquired it
    EXPECT_TRUE(halReceived(releases, "release", "3"));
    auto history = reportsOf(lines, "history");
    ASSERT_EQ(history.size(), 2u);
    EXPECT_TRUE(contains(history[1]["history"].text, "thermal levels 5=2"));
    EXPECT_EQ(reportsOf(lines, "pm")[0]["result"].asInt(), 1);
}

TEST(TorqctlShell, UnknownHandlesAndBadLinesAreRefusedButTheShellGoesOn) {
    const std::string script =
            "release 7\n"
            "resctl 0x010108a0=5\n"
            "unlisten 1\n"
            "resctl 'oops\n"
            "resctl --json 0x1=1\n"
            "release 1\n";
    RunResult r = torqctl({"shell"}, script);
    EXPECT_EQ(r.exitCode, 2);
    const auto errors = r.errLines();
    ASSERT_EQ(errors.size(), 4u) << r.err;
    EXPECT_EQ(errors[0], "torqctl: unknown handle 7 (not obtained in this run)");
    EXPECT_EQ(errors[1], "torqctl: unknown listener handle 1");
    EXPECT_EQ(errors[2], "torqctl: line 4: unterminated ' quote");
    EXPECT_TRUE(contains(errors[3], "line 5: global option --json"));
    // The valid lines still ran, and handle 1 went back through torqHalclient.
    EXPECT_TRUE(contains(r.out, "torqHalclient::torqResCtlRelease(1) = 0"));
}

TEST(TorqctlShell, KillAndRestartTheHal) {
    const std::string script =
            "resctl 0x010108a0=5\n"
            "kill-hal\n"
            "release 1\n"
            "state 0x010108a0\n"
            "acquire ACTION_LAUNCH\n"
            "state --via zel 0x010108a0\n"
            "restart-hal\n"
            "state 0x010108a0\n"
            "acquire ACTION_LAUNCH\n"
            "kill-hal\n"
            "restart-hal --after 200\n"
            "resctl 0x010108a0=6\n";
    const auto start = std::chrono::steady_clock::now();
    RunResult r = torqctl({"--json", "--log", "shell"}, script, 30000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.exitCode, 1);  // the last failing line: ZelMutiResStateRequest without a HAL
    ASSERT_EQ(r.errLines().size(), 2u) << r.err;
    EXPECT_EQ(r.errLines()[0], "torqctl: unknown handle 1 (not obtained in this run)");
    EXPECT_TRUE(contains(r.errLines()[1], "the HAL is down"));
    auto lines = jsonLines(r);

    size_t died = 0;
    for (const JValue& v : lines) died += v["message"].text == "Torq HAL Service died" ? 1 : 0;
    EXPECT_GE(died, 2u);

    // While the HAL is dead the flat API fails at once.
    auto acquires = reportsOf(lines, "acquire");
    ASSERT_EQ(acquires.size(), 2u);
    EXPECT_EQ(acquires[0]["result"].asInt(), -1);
    EXPECT_EQ(acquires[1]["result"].asInt(), 1);  // a fresh HAL counts from 1 again
    auto states = reportsOf(lines, "state");
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states[0]["result"].asInt(), -1);
    EXPECT_EQ(states[1]["values"][0]["value"].text, "80");  // the old request died with the HAL

    // A torqHalclient call made while the HAL is down waits for the delayed restart.
    auto ctl = reportsOf(lines, "resctl");
    ASSERT_EQ(ctl.size(), 2u);
    EXPECT_EQ(ctl[1]["result"].asInt(), 1);
}

TEST(TorqctlTour, CompletesWithExitCodeZero) {
    RunResult r = torqctl({"tour"}, "", 60000);
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_TRUE(r.err.empty()) << r.err;
    EXPECT_EQ(r.outLines().back(), "tour: 17 of 17 steps passed");
    EXPECT_FALSE(contains(r.out, "FAILED"));

    auto lines = jsonLines(torqctl({"--json", "tour"}, "", 60000));
    size_t steps = 0;
    for (const JValue& v : lines) {
        if (v["event"].text == "step") {
            ++steps;
            EXPECT_TRUE(v["ok"].boolean) << v["title"].text;
        }
    }
    EXPECT_EQ(steps, 17u);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines.back()["ok"].boolean);
}

TEST(TorqctlTour, NeedsTheSimulator) {
    RunResult r = torqctl({"--no-sim", "tour"}, "", 20000);
    expectOneErrorLine(r, 3, "no Torq HAL is declared");
}

}  // namespace
}  // namespace torqctl_test
