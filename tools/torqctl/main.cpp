// torqctl: drives the Torq HAL through libquarn-zel-client's front ends and shows what each call
// returned and what the HAL received. See docs/torqctl.md.

#include <android/binder_process.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Console.h"

using namespace torqctl;

namespace {

std::atomic<Console*> gConsole{nullptr};
// Cleared before torqctl takes its embedded HAL down, whose death the library would log.
std::atomic<bool> gLogOpen{true};

int runCommand(const ParseResult& parsed, Output& out) {
    const Command& c = parsed.command;
    if (c.word == "help" || c.help) {
        out.raw(helpText(c));
        return kExitOk;
    }
    std::ifstream file;
    if (c.word == "shell" && !c.name.empty()) {
        file.open(c.name);
        // An ifstream opens a directory without complaint and then reads nothing from it.
        struct stat info {};
        const bool directory = file && stat(c.name.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        if (!file || directory) {
            const std::string why = directory ? "it is a directory" : strerror(errno);
            out.error("cannot read " + c.name + ": " + why, kExitUsage);
            return kExitUsage;
        }
    }

    // Binder threads carry the HAL's callbacks and death notices to us.
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    ABinderProcess_startThreadPool();

    std::string error;
    std::unique_ptr<Backend> backend = openBackend(parsed.global.noSim, &error);
    if (backend == nullptr) {
        out.error(error, kExitNoHal);
        return kExitNoHal;
    }
    int status;
    {
        Console console(out, *backend, c.word == "shell" || c.word == "tour");
        gConsole = &console;
        if (c.word == "shell") {
            status = file.is_open() ? console.runShell(file, false)
                                    : console.runShell(std::cin, isatty(STDIN_FILENO) != 0);
        } else if (c.word == "tour") {
            status = runTour(console);
        } else {
            status = console.execute(c);
        }
        console.finish();
        gConsole = nullptr;
        // An embedded HAL goes before the console: callback objects the library still holds
        // point to it, and a dead HAL calls nobody.
        gLogOpen = false;
        backend->killHal();
    }
    return status;
}

// Output that could not be written is a failure, whatever the command did.
int checkedExit(const Output& out, int status) {
    if (!out.writeFailed()) return status;
    fprintf(stderr, "torqctl: cannot write to standard output\n");
    return status == kExitOk ? kExitFailed : status;
}

}  // namespace

int main(int argc, char** argv) {
    const ParseResult parsed = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
    static Output out(parsed.global.json);
    if (!parsed.ok) {
        out.error(parsed.error, kExitUsage);
        return checkedExit(out, kExitUsage);
    }
    if (parsed.global.version) {
        out.message("torqctl " TORQCTL_VERSION,
                    jsonObject({{"command", "version"}, {"version", TORQCTL_VERSION}}));
        return checkedExit(out, kExitOk);
    }
    // liblog prints to stderr by default on a host: keep the library's lines for --log (and for
    // the tour's checks) and out of the normal output.
    installLogHook([showLog = parsed.global.log](const LogLine& line) {
        if (!gLogOpen) return;
        if (Console* console = gConsole.load()) {
            console->onLog(line, showLog);
        } else if (showLog) {
            out.log(line);
        }
    });
    const int status = runCommand(parsed, out);
    installLogHook([](const LogLine&) {});
    return checkedExit(out, status);
}
