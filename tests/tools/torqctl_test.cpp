// torqctl end to end: each run is a fresh process with its own embedded simulator.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <json/reader.h>
#include <json/writer.h>  // operator<< for failure messages

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CommandParser.h"

namespace torqctl_test {
namespace {

struct RunResult {
    int exitCode = -1;  // -1 when killed, the time limit included
    std::string out;
    std::string err;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string readAndClose(FILE* file) {
    std::string text;
    rewind(file);
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), file)) > 0;) text.append(buf, n);
    fclose(file);
    return text;
}

// Runs torqctl with `input` as its standard input. Files rather than pipes take the output, so
// nothing can block on a full pipe; an alarm set before exec kills a run that hangs. With
// `fullStdout` every write to standard output fails.
RunResult torqctl(const std::vector<std::string>& args, const std::string& input = "",
                  bool fullStdout = false) {
    FILE* files[3] = {tmpfile(), tmpfile(), tmpfile()};
    RunResult r;
    if (files[0] == nullptr || files[1] == nullptr || files[2] == nullptr) return r;
    fwrite(input.data(), 1, input.size(), files[0]);
    rewind(files[0]);
    std::vector<char*> argv = {const_cast<char*>(TORQCTL_PATH)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        for (int fd = 0; fd < 3; ++fd) dup2(fileno(files[fd]), fd);
        if (fullStdout) freopen("/dev/full", "w", stdout);
        alarm(60);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    fclose(files[0]);
    r.out = readAndClose(files[1]);
    r.err = readAndClose(files[2]);
    return r;
}

// Whether `text` holds every one of `parts`, in this order.
::testing::AssertionResult inOrder(const std::string& text, const std::vector<std::string>& parts) {
    size_t at = 0;
    for (const std::string& part : parts) {
        at = text.find(part, at);
        if (at == std::string::npos) {
            return ::testing::AssertionFailure() << "missing (in order): " << part << "\nin:\n"
                                                 << text;
        }
        at += part.size();
    }
    return ::testing::AssertionSuccess();
}

size_t countOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// The run's stdout lines, each read by jsoncpp as one complete JSON object.
std::vector<Json::Value> jsonLines(const RunResult& r) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::vector<Json::Value> values;
    for (const std::string& line : linesOf(r.out)) {
        Json::Value value;
        std::string errors;
        EXPECT_TRUE(reader->parse(line.data(), line.data() + line.size(), &value, &errors))
                << errors << "\nin: " << line;
        EXPECT_TRUE(value.isObject()) << line;
        values.push_back(value);
    }
    return values;
}

// One command a run: the call it makes with its arguments and result, what the HAL received, the
// exit code, and for bad input one line on standard error and nothing else; with --json that
// error is also an object on standard output, with the exit code it leads to.
TEST(TorqctlCli, EachCommandShowsItsCallAndWhatTheHalReceived) {
    const std::string path = "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq";
    struct Row {
        std::vector<std::string> args;
        int exitCode;
        std::vector<std::string> out;  // in this order
        std::string err = "";          // part of the one error line; none: stderr stays empty
    };
    const std::vector<Row> rows = {
            {{"resctl", "0xzz=1"}, 2, {}, "malformed opcode '0xzz'"},
            {{"acquire", "ACTION_NOPE"}, 2, {}, "unknown action"},
            {{"shell", "/nonexistent/script"}, 2, {}, "cannot read"},
            {{"shell", "/"}, 2, {}, "cannot read /: it is a directory"},
            {{"--version"}, 0, {"torqctl " TORQCTL_VERSION "\n"}},
            {{"--json", "--version"},
             0,
             {"{\"command\":\"version\",\"version\":\"" TORQCTL_VERSION "\"}\n"}},
            {{"--no-sim", "state", "0x010108a0"}, 3, {}, "no Torq HAL is declared"},
            {{"help"}, 0, {torqctl::usage()}},
            {{"--json", "listen", "--help"}, 0, {torqctl::commandUsage("listen")}},
            {{"actions"}, 0, {"(199 of 199)\n", "\n   11  ACTION_CAMERA_OPEN\n"}},
            {{"actions", "NO_SUCH_ACTION"}, 1, {"(0 of 199)\n"}},
            {{"acquire", "ACTION_CAMERA_OPEN", "--scene", "cam", "--identity", "me", "--timeout",
              "9"},
             0,
             {"ZelEventAcquireWrapper(\"VARDEX_ACTION_CAMERA_OPEN\", \"cam\", \"me\", 9) = 1\n",
              "  HAL received: request(kind=8 data=[{id=0x0000000b}] duration=9 pkg=\"cam\" "
              "identity=\"me\") -> 1\n"}},
            // A prefixed name is taken as it stands; this one is in the table twice.
            {{"acquire", "VARDEX_ACTION_CAMERA_MULTI_SCENE"},
             0,
             {"(\"VARDEX_ACTION_CAMERA_MULTI_SCENE\", \"\"", "is event id 102\n"}},
            // The simulator refuses ids beyond the action table; the flat API reports -1.
            {{"acquire-id", "500"}, 1, {"ZelEventAcquire(500, ", ") = -1  [failed]\n"}},
            {{"acquire-id", "42", "--pkg", "p", "--identity", "me", "0x010108b0=7"},
             0,
             {"ZelEventAcquire(42, \"p\", \"me\", 0, {0x010108b0=\"7\"}) = 1\n",
              "request(kind=8 data=[{id=0x0000002a} {id=0x010108b0 value=\"7\"}] pkg=\"p\" "
              "identity=\"me\") -> 1\n"}},
            {{"res-acquire", "0x01011040=2"},
             0,
             {"ZelResAcquire({0x01011040=\"2\"}, 0, \"torqctl\", 0) = 1\n",
              "request(kind=1 data=[{id=0x01011040 value=\"2\"}] pkg=\"\" "}},
            {{"res-acquire", "--platform", "--pkg", "com.x", "0x01011040=2"},
             0,
             {"ZelPlatformResAcquire({0x01011040=\"2\"}, 0, \"torqctl\", \"com.x\", 0) = 1\n",
              "request(kind=12 data=[{id=0x01011040 value=\"2\"}] pkg=\"com.x\" "}},
            {{"resctl", "--callback", "--level", "1", "--duration", "5000", "0x010108a0=50"},
             0,
             {"torqHalclient::torqResCtlRequest(-1, 5000, {0x010108a0=\"50\"}, -1, 1, 0, "
              "callback) = 1\n",
              "flag=true option=-1 duration=5000 param=-1 callback=yes) -> 1\n",
              "callback to request #1: 0x010108a0=\"50\"\n"}},
            {{"sactl", "7"},
             0,
             {"torqHalclient::torqSACtlRequest(-1, 0, 0x00000007, -1, -1, 0) = 1\n",
              "request(kind=2 data=[{id=0x00000007}] option=-1 param=-1) -> 1\n"}},
            {{"zel-notify", "3", "7", "10", "20"},
             0,
             {"ZelNotify(3, 7, {10, 20}) = 1\n",
              "request(kind=10 data=[{id=0x00000003 subId=7} {id=0x00000003 subId=7}]) -> 1\n"}},
            {{"rule", "131", "1", "0x01011040=1"},
             0,
             {"zelRuleCtl(131, 1, {0x01011040=\"1\"}) = 0\n",
              "ruleCtl(131, 1, [{id=0x01011040 value=\"1\"}]) -> 0\n"}},
            {{"sysinfo", "4", "-9000000000"},
             0,
             {"setRelatedSysInfo(4, -9000000000) = 0\n",
              "HAL received: setRelatedSysInfo(4, -9000000000) -> 0\n"}},
            {{"state", "0x010108a0", "0x7fff0000"},
             0,
             {"torqHalclient::torqResStateRequest({0x010108a0, 0x7fff0000}, 0, output) = 2\n",
              "    0x010108a0 = \"80\"\n    0x7fff0000 = \"\"\n"}},
            // The uncatalogued opcode has no value and is not counted.
            {{"state", "--via", "zel", "0x010108a0", "0x7fff0000"},
             0,
             {"ZelMutiResStateRequest({0x010108a0, 0x7fff0000}) = 1\n"}},
            {{"state", "--via", "zel-one", "0x010108b0"},
             0,
             {"ZelResStateRequest(0x010108b0, value) done\n    0x010108b0 = \"85\"\n"}},
            {{"state", "--via", "zel-one", "0x7fff0000"},
             1,
             {"ZelResStateRequest(0x7fff0000, value) done  [failed]\n    value left untouched\n"}},
            // A record without a value is skipped.
            {{"state-path", "--map", path + "=x", "/unknown=y"},
             0,
             {"torqHalclient::torq_res_state_request_map_by_path({\"" + path +
                      "\": \"x\", \"/unknown\": \"y\"}, 0, output) = 1\n",
              "    " + path + " = \"300000\"\n  HAL received:"}},
            {{"listen", "--for", "150", "0x010108a0"},
             0,
             {"torqHalclient::torqResListeningRegister({0x010108a0}, 0, callback) = 1\n",
              "torqHalclient::torqResListeningUnRegister(1) = 0\n"}},
            {{"prop", "set", "torq.version", "2"}, 1, {") = -1  [failed]\n"}},  // read-only
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.args));
        RunResult r = torqctl(row.args);
        EXPECT_EQ(r.exitCode, row.exitCode) << r.err;
        EXPECT_TRUE(inOrder(r.out, row.out));
        if (row.err.empty()) {
            EXPECT_EQ(r.err, "");
        } else {
            EXPECT_EQ(r.out, "");
            const auto lines = linesOf(r.err);
            ASSERT_EQ(lines.size(), 1u) << r.err;
            EXPECT_EQ(lines[0].rfind("torqctl: ", 0), 0u) << lines[0];
            EXPECT_NE(lines[0].find(row.err), std::string::npos) << lines[0];
            std::vector<std::string> args = row.args;
            args.insert(args.begin(), "--json");
            RunResult json = torqctl(args);
            EXPECT_EQ(json.exitCode, row.exitCode);
            EXPECT_EQ(json.err, r.err);
            const auto objects = jsonLines(json);
            ASSERT_EQ(objects.size(), 1u) << json.out;
            EXPECT_EQ(r.err, "torqctl: " + objects[0]["error"].asString() + "\n");
            EXPECT_EQ(objects[0]["exit"], row.exitCode);
        }
        EXPECT_EQ(r.out.find("log: "), std::string::npos);  // only with --log
    }
}

TEST(TorqctlCli, JsonModeWritesOneObjectALine) {
    auto actions = jsonLines(torqctl({"--json", "actions", "aps_capture_l1"}));
    ASSERT_EQ(actions.size(), 1u);
    EXPECT_EQ(actions[0]["count"], 2);
    ASSERT_EQ(actions[0]["actions"].size(), 2u);
    EXPECT_EQ(actions[0]["actions"][1]["id"], 106);
    EXPECT_EQ(actions[0]["actions"][1]["name"], "ACTION_CAMERA_APS_CAPTURE_L1");

    // What the HAL received comes as fields, and the callback as an event of its own.
    const std::string path = "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq";
    auto ctl = jsonLines(torqctl({"--json", "resctl-path", "--callback", path + "=999"}));
    ASSERT_EQ(ctl.size(), 2u);
    EXPECT_EQ(ctl[0]["call"], "torqHalclient::torq_resctl_request_with_callback_by_path");
    EXPECT_EQ(ctl[0]["result"], 1);
    EXPECT_EQ(ctl[0]["ok"], true);
    ASSERT_EQ(ctl[0]["hal"].size(), 2u);
    const Json::Value& call = ctl[0]["hal"][0];
    EXPECT_EQ(call["type"], "call");
    EXPECT_EQ(call["method"], "request");
    EXPECT_EQ(call["callback"], true);
    ASSERT_EQ(call["extras"].size(), 1u);
    EXPECT_EQ(call["extras"][0], "zdbdebug");
    EXPECT_EQ(call["answer"]["result"], 1);
    EXPECT_EQ(call["answer"]["exception"], 0);
    EXPECT_EQ(ctl[0]["hal"][1]["type"], "callback");
    EXPECT_EQ(ctl[1]["event"], "callback");
    EXPECT_EQ(ctl[1]["handle"], 1);
    EXPECT_EQ(ctl[1]["records"][0]["path"], path);
    EXPECT_EQ(ctl[1]["records"][0]["value"], "999");

    auto state = jsonLines(torqctl({"--json", "state", "--via", "zel", "0x010108a0"}));
    ASSERT_EQ(state.size(), 1u);
    EXPECT_EQ(state[0]["values"][0]["value"], "80");
    const Json::Value& records = state[0]["hal"][0]["answer"]["records"];
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["id"], "0x010108a0");
    EXPECT_EQ(records[0]["value"], "80");

    auto dumps = jsonLines(torqctl({"--json", "dump", "all"}));
    ASSERT_EQ(dumps.size(), 9u);
    for (size_t code = 0; code < dumps.size(); ++code) {
        EXPECT_EQ(dumps[code]["result"], 0);
        EXPECT_EQ(dumps[code]["output"][0].asString().rfind("dump " + std::to_string(code), 0), 0u)
                << dumps[code];
    }

    auto logged = jsonLines(torqctl({"--json", "--log", "pm", "0"}));
    Json::Value expected(Json::objectValue);
    expected["event"] = "log";
    expected["priority"] = "I";
    expected["tag"] = "[ZEL_CLIENT]";
    expected["message"] = "zel client ZelGetPMStatus";
    EXPECT_NE(std::find(logged.begin(), logged.end(), expected), logged.end());
}

// Text other than ASCII reaches the HAL and comes back from --json as it was, whether it came as
// an argument or as a shell line. Bytes that are not UTF-8 (a lone continuation byte, a cut
// sequence and a byte never used) cannot cross the binder, whose strings are UTF-16: the call
// fails, and the arguments show the bytes escaped and the characters around them. How every
// field of the JSON output takes such text is for the torqctl_json fuzz target and its corpus.
TEST(TorqctlCli, NonAsciiTextComesBackEqualFromJson) {
    // The first JSON object of `line` run as arguments (split as a shell would) and as a shell
    // line, each run with `exitCode`.
    const auto bothWays = [](const std::string& line, int exitCode) {
        std::vector<std::string> words;
        std::string error;
        EXPECT_TRUE(torqctl::tokenize(line, &words, &error)) << error;
        words.insert(words.begin(), "--json");
        std::vector<Json::Value> firsts;
        for (const RunResult& r : {torqctl(words), torqctl({"--json", "shell"}, line + "\n")}) {
            EXPECT_EQ(r.exitCode, exitCode) << line << "\n" << r.err;
            const auto lines = jsonLines(r);
            firsts.push_back(lines.empty() ? Json::Value() : lines[0]);
        }
        return firsts;
    };
    const std::string text = "héllo € 日本 😀";
    for (const Json::Value& r : bothWays("prop set torq.tëst '" + text + "'", 0)) {
        EXPECT_EQ(r["hal"][0]["name"], "torq.tëst");
        EXPECT_EQ(r["hal"][0]["value"], text);
    }
    for (const Json::Value& r : bothWays("resctl 0x010108a0=\x80é\xe2\x82€\xff", 1)) {
        EXPECT_EQ(r["args"], "-1, 0, {0x010108a0=\"\\x80é\\xe2\\x82€\\xff\"}, -1, -1, 0");
        EXPECT_EQ(r["hal"].size(), 0u);
    }
}

// A failed write is a failure, even when the command itself went well.
TEST(TorqctlCli, AFailedWriteToStandardOutputExitsOne) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"actions"}, {"--json", "actions"}, {"help"}}) {
        SCOPED_TRACE(args.back());
        RunResult r = torqctl(args, "", true);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.err, "torqctl: cannot write to standard output\n");
    }
}

TEST(TorqctlShell, UnknownHandlesAndBadLinesAreRefusedButTheShellGoesOn) {
    RunResult r = torqctl({"shell"},
                          "release 7\n"
                          "resctl 0x010108a0=5\n"
                          "acquire ACTION_TOUCH_BOOST\n"
                          "unlisten 1\n"
                          "resctl 'oops\n"
                          "resctl --json 0x1=1\n"
                          "release 1\n"
                          "release 2\n");
    EXPECT_EQ(r.exitCode, 2);
    const auto errors = linesOf(r.err);
    ASSERT_EQ(errors.size(), 4u) << r.err;
    EXPECT_EQ(errors[0], "torqctl: unknown handle 7 (not obtained in this run)");
    EXPECT_EQ(errors[1], "torqctl: unknown listener handle 1");
    EXPECT_EQ(errors[2], "torqctl: line 5: unterminated ' quote");
    EXPECT_TRUE(inOrder(errors[3], {"line 6: global option --json"}));
    // The valid lines still ran; the handles outlived the lines between, and each went back
    // through the front end that made it.
    EXPECT_TRUE(inOrder(r.out, {"torqHalclient::torqResCtlRelease(1) = 0\n",
                                "> release 2\nZelReleaseWapper(2) done\n"}));
}

TEST(TorqctlShell, KillAndRestartTheHal) {
    RunResult r = torqctl({"--log", "shell"},
                          "resctl 0x010108a0=5\n"
                          "kill-hal\n"
                          "release 1\n"
                          "state 0x010108a0\n"
                          "state --via zel 0x010108a0\n"
                          "restart-hal\n"
                          "state 0x010108a0\n"
                          "acquire ACTION_LAUNCH\n"
                          "kill-hal\n"
                          "restart-hal --after 200\n"
                          "resctl 0x010108a0=6\n");
    EXPECT_EQ(r.exitCode, 1);  // ZelMutiResStateRequest failed without a HAL
    // Handles die with the HAL; torqHalclient is not called while it would wait for nobody.
    const auto errors = linesOf(r.err);
    ASSERT_EQ(errors.size(), 2u) << r.err;
    EXPECT_EQ(errors[0], "torqctl: unknown handle 1 (not obtained in this run)");
    EXPECT_TRUE(inOrder(errors[1], {"the HAL is down"}));
    // Each front end that was connected hears of each death.
    EXPECT_EQ(countOf(r.out, "log: E/TORQFramework-lib-vendor: Torq HAL Service died\n"), 2u);
    EXPECT_EQ(countOf(r.out, "log: E/[ZEL_CLIENT]: Torq HAL Service died\n"), 1u);
    EXPECT_TRUE(inOrder(
            r.out,
            {// While the HAL is dead the flat API fails at once.
             "ZelMutiResStateRequest({0x010108a0}) = -1  [failed]\n",
             // The old request died with the HAL, and a fresh HAL counts from 1 again.
             "torqHalclient::torqResStateRequest({0x010108a0}, 0, output) = 1\n"
             "    0x010108a0 = \"80\"\n",
             "ZelEventAcquireWrapper(\"VARDEX_ACTION_LAUNCH\", \"\", \"torqctl\", 0) = 1\n",
             // A torqHalclient call made while the HAL is down waits for the delayed restart.
             "the HAL will restart in 200 ms\n",
             "torqHalclient::torqResCtlRequest(-1, 0, {0x010108a0=\"6\"}, -1, -1, 0) = 1\n"}));
}

TEST(TorqctlTour, CompletesWithExitCodeZero) {
    RunResult r = torqctl({"tour"});
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(inOrder(r.out, {"\ntour: 17 of 17 steps passed\n"}));
}

}  // namespace
}  // namespace torqctl_test
