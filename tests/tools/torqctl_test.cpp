// torqctl end to end: each run is a fresh process with its own embedded simulator.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "CommandParser.h"

namespace torqctl_test {
namespace {

// One run of torqctl: its arguments and standard input, its exit code and, in order, fragments of
// what it writes to standard output and to standard error (no fragments: nothing at all).
struct Row {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> out;
    std::vector<std::string> err = {};
    std::string input = "";   // standard input, for shell
    bool fullStdout = false;  // every write to standard output fails
};

std::string readAndClose(FILE* file) {
    std::string text;
    rewind(file);
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), file)) > 0;) text.append(buf, n);
    fclose(file);
    return text;
}

// Runs torqctl as `row` says and gives its exit code, -1 when killed (the time limit included).
// Files rather than pipes take the output, so nothing can block on a full pipe; an alarm set
// before exec kills a run that hangs.
int torqctl(const Row& row, std::string* out, std::string* err) {
    FILE* files[3] = {tmpfile(), tmpfile(), tmpfile()};
    if (files[0] == nullptr || files[1] == nullptr || files[2] == nullptr) return -1;
    fwrite(row.input.data(), 1, row.input.size(), files[0]);
    rewind(files[0]);
    std::vector<char*> argv = {const_cast<char*>(TORQCTL_PATH)};
    for (const std::string& a : row.args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        for (int fd = 0; fd < 3; ++fd) dup2(fileno(files[fd]), fd);
        if (row.fullStdout) freopen("/dev/full", "w", stdout);
        alarm(60);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    fclose(files[0]);
    *out = readAndClose(files[1]);
    *err = readAndClose(files[2]);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

// With --json an error is also an object on standard output, with the exit code it leads to, and
// every line on standard output is one JSON object (its keys in sorted order; that each parses:
// the torqctl_json fuzz target).
TEST(TorqctlCli, EachRunShowsItsCallsWhatTheHalReceivedAndItsExitCode) {
    const std::string path = "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq";
    const std::vector<Row> rows = {
            {{"--json", "resctl", "0xzz=1"},
             2,
             {"{\"error\":\"malformed opcode '0xzz'", "\"exit\":2}\n"},
             {"torqctl: malformed opcode '0xzz'"}},
            {{"shell", "/"}, 2, {}, {"torqctl: cannot read /: it is a directory"}},
            {{"--json", "--no-sim", "state", "0x010108a0"},
             3,
             {"{\"error\":\"no Torq HAL is declared", "\"exit\":3}\n"},
             {"torqctl: no Torq HAL is declared"}},
            {{"--version"}, 0, {"torqctl " TORQCTL_VERSION "\n"}},
            {{"help"}, 0, {torqctl::usage()}},
            {{"acquire", "ACTION_CAMERA_OPEN", "--scene", "cam", "--identity", "me", "--timeout",
              "9"},
             0,
             {"ZelEventAcquireWrapper(\"VARDEX_ACTION_CAMERA_OPEN\", \"cam\", \"me\", 9) = 1\n",
              "  HAL received: request(kind=8 data=[{id=0x0000000b}] duration=9 pkg=\"cam\" "
              "identity=\"me\") -> 1\n"}},
            {{"acquire-id", "42", "--pkg", "p", "--identity", "me", "0x010108b0=7"},
             0,
             {"ZelEventAcquire(42, \"p\", \"me\", 0, {0x010108b0=\"7\"}) = 1\n",
              "request(kind=8 data=[{id=0x0000002a} {id=0x010108b0 value=\"7\"}] pkg=\"p\" "
              "identity=\"me\") -> 1\n"}},
            {{"res-acquire", "--platform", "--pkg", "com.x", "0x01011040=2"},
             0,
             {"ZelPlatformResAcquire({0x01011040=\"2\"}, 0, \"torqctl\", \"com.x\", 0) = 1\n",
              "request(kind=12 data=[{id=0x01011040 value=\"2\"}] pkg=\"com.x\" "}},
            // Only the first '=' splits; the callback comes once, to the request.
            {{"resctl", "--callback", "--level", "1", "--duration=5000", "--param", "3", "--option",
              "-2", "--tag", "0x10", "0x010108a0=50", "17=a=b"},
             0,
             {"torqHalclient::torqResCtlRequest(3, 5000, {0x010108a0=\"50\", 0x00000011=\"a=b\"}, "
              "-2, 1, 16, callback) = 1\n",
              "flag=true option=-2 tag=16 duration=5000 param=3 callback=yes) -> 1\n",
              "  HAL sent:     onCallback([{id=0x010108a0 value=\"50\"} {id=0x00000011 "
              "value=\"a=b\"}]) to request #1\n",
              "callback to request #1: 0x010108a0=\"50\" 0x00000011=\"a=b\"\n"}},
            // Global options stand anywhere; only the path form takes a 64-bit duration. What the
            // HAL received comes as fields, and the callback as an event of its own.
            {{"resctl-path", "--callback", "--json", "--duration", "8589934592", path + "=999"},
             0,
             {"\"call\":\"torqHalclient::torq_resctl_request_with_callback_by_path\"",
              "\"hal\":[{\"answer\":{\"exception\":0,", "\"duration\":8589934592,",
              "\"method\":\"onCallback\",", "\"to\":\"request #1\",\"type\":\"callback\"}],",
              "{\"event\":\"callback\",\"handle\":1,\"records\":[{\"path\":\"" + path +
                      "\",\"value\":\"999\"}],\"to\":\"request\"}\n"}},
            {{"sactl", "--callback", "7"},
             0,
             {"torqHalclient::torqSACtlRequest(-1, 0, 0x00000007, -1, -1, 0, callback) = 1\n",
              "request(kind=2 data=[{id=0x00000007}] option=-1 param=-1 callback=yes) -> 1\n",
              "callback to request #1: 0x00000007=\"1\"\n"}},
            {{"zel-notify", "3", "7", "10", "20"},
             0,
             {"ZelNotify(3, 7, {10, 20}) = 1\n",
              "request(kind=10 data=[{id=0x00000003 subId=7} {id=0x00000003 subId=7}]) -> 1\n"}},
            {{"notify", "15", "-1", "0x100", "a b", "--name", "N"},
             0,
             {"ZelNotifyWapper(\"N\", 15, -1, 256, 0, 0, \"a b\") = 0\n"}},
            {{"rule", "131", "1", "0x01011040=1"},
             0,
             {"zelRuleCtl(131, 1, {0x01011040=\"1\"}) = 0\n",
              "ruleCtl(131, 1, [{id=0x01011040 value=\"1\"}]) -> 0\n"}},
            // The uncatalogued opcode has no value and is not counted.
            {{"--json", "state", "--via", "zel", "0x010108a0", "0x7fff0000"},
             0,
             {"\"call\":\"ZelMutiResStateRequest\"",
              "\"answer\":{\"exception\":0,\"message\":\"\",\"records\":[{\"extra\":null,"
              "\"id\":\"0x010108a0\",\"path\":null,\"subId\":0,\"value\":\"80\"},",
              "\"result\":1,\"values\":[{\"id\":\"0x010108a0\",\"value\":\"80\"},"}},
            {{"state", "--via", "zel-one", "0x7fff0000"},
             1,
             {"ZelResStateRequest(0x7fff0000, value) done  [failed]\n    value left untouched\n"}},
            // A record without a value is skipped.
            {{"state-path", "--map", path + "=x", "/unknown=y"},
             0,
             {"torqHalclient::torq_res_state_request_map_by_path({\"" + path +
                      "\": \"x\", \"/unknown\": \"y\"}, 0, output) = 1\n",
              "    " + path + " = \"300000\"\n  HAL received:"}},
            {{"listen", "--for", "0", "/proc/x", "/proc/y"},
             0,
             {"torq_res_listening_register_by_path({\"/proc/x\", \"/proc/y\"}, 0, callback) = 1\n",
              "torqHalclient::torqResListeningUnRegister(1) = 0\n"}},
            {{"prop", "set", "torq.version", "2"}, 1, {") = -1  [failed]\n"}},  // read-only
            {{"prop", "set", "--", "vendor.x", "--json"},
             0,
             {"HAL received: propertySet(\"vendor.x\", \"--json\") -> 0\n"}},
            // Dump tables by code, by name in any case, and all of them.
            {{"shell"},
             0,
             {"dump 8 ResRecordList:\n", "dump 7 PidfdMonitorMap:\n",
              "torqHalclient::torqDumpToDoQueue() = 0\n    dump 0 ToDoQueue:\n      #1 expires in ",
              "dump 1 RunMap:\n      #1 resources {0x010108a0=50}, ",
              "dump 2 ActiveResMap:\n      0x010108a0 sched.cluster0.target_load = 50 by #1, "
              "default 80\n"},
             {},
             "resctl --duration 60000 0x010108a0=50\ndump 8\ndump pidfdmonitormap\ndump all\n"},
            // Unknown handles and bad lines are refused but the shell goes on: the handles outlive
            // the lines between, and each goes back through the front end that made it.
            {{"shell"},
             2,
             {"> release 1\ntorqHalclient::torqResCtlRelease(1) = 0\n",
              "> release 2\nZelReleaseWapper(2) done\n"},
             {"torqctl: unknown handle 7 (not obtained in this run)\n",
              "torqctl: unknown listener handle 1\n", "torqctl: line 5: unterminated ' quote\n",
              "torqctl: line 6: global option --json"},
             "release 7\nresctl 0x010108a0=5\nacquire ACTION_TOUCH_BOOST\nunlisten 1\n"
             "resctl 'oops\nresctl --json 0x1=1\nrelease 1\nrelease 2\n"},
            // Handles die with the HAL; torqHalclient is not called while it would wait for
            // nobody, the flat API fails at once. Each front end that was connected hears of each
            // death. ZelMutiResStateRequest's failure makes the exit code.
            {{"--log", "shell"},
             1,
             {"> kill-hal\nlog: E/TORQFramework-lib-vendor: Torq HAL Service died\nthe HAL's "
              "process was killed\n",
              "ZelMutiResStateRequest({0x010108a0}) = -1  [failed]\n",
              // The old request died with the HAL, and a fresh HAL counts from 1 again.
              "torqHalclient::torqResStateRequest({0x010108a0}, 0, output) = 1\n"
              "    0x010108a0 = \"80\"\n",
              "ZelEventAcquireWrapper(\"VARDEX_ACTION_LAUNCH\", \"\", \"torqctl\", 0) = 1\n",
              "> kill-hal\n", "log: E/[ZEL_CLIENT]: Torq HAL Service died\n",
              // A torqHalclient call made while the HAL is down waits for the delayed restart.
              "the HAL will restart in 200 ms\n",
              "torqHalclient::torqResCtlRequest(-1, 0, {0x010108a0=\"6\"}, -1, -1, 0) = 1\n"},
             {"torqctl: unknown handle 1 (not obtained in this run)\n", "torqctl: the HAL is down"},
             "resctl 0x010108a0=5\nkill-hal\nrelease 1\nstate 0x010108a0\n"
             "state --via zel 0x010108a0\nrestart-hal\nstate 0x010108a0\nacquire ACTION_LAUNCH\n"
             "kill-hal\nrestart-hal --after 200\nresctl 0x010108a0=6\n"},
            {{"tour"}, 0, {"\ntour: 17 of 17 steps passed\n"}},
            // A failed write is a failure, even when the command itself went well.
            {{"actions"}, 1, {}, {"torqctl: cannot write to standard output\n"}, "", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.args) + " " + row.input);
        const auto end = std::find(row.args.begin(), row.args.end(), "--");  // options end
        const auto has = [&](const char* arg) {
            return std::find(row.args.begin(), end, arg) != end;
        };
        std::string out, err;
        EXPECT_EQ(torqctl(row, &out, &err), row.exitCode) << err;
        EXPECT_EQ(out.empty(), row.out.empty()) << out;
        EXPECT_TRUE(inOrder(out, row.out));
        EXPECT_EQ(err.empty(), row.err.empty()) << err;
        EXPECT_TRUE(inOrder(err, row.err));
        std::istringstream lines(has("--json") ? out : "");
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line.size() > 1 && line.front() == '{' && line.back() == '}') << line;
        }
        EXPECT_TRUE(has("--log") || out.find("log: ") == std::string::npos) << out;
    }
}

}  // namespace
}  // namespace torqctl_test
