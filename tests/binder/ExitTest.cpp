// A program using the runtime may end at any moment, also while the runtime is busy, and must then
// exit cleanly: no abort, no crash, no sanitizer report. binder_exit_helper is such a program.

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kHung = -2;

// Runs the helper and returns its wait status, or kHung when it has not ended after 30 s (then
// it is killed): a program stuck in its exit is no cleaner than one that aborts.
int runHelper(const std::string& how, int delayUs) {
    std::string delay = std::to_string(delayUs);
    std::string mode = how;
    std::string path = BINDER_EXIT_HELPER;
    char* argv[] = {path.data(), mode.data(), delay.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, path.c_str(), nullptr, nullptr, argv, environ) != 0) return -1;
    int status = 0;
    for (int waited = 0; waited < 30000; ++waited) {
        const pid_t done = waitpid(child, &status, WNOHANG);
        if (done == child) return status;
        if (done != 0) return -1;
        usleep(1000);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return kHung;
}

std::string describe(int status) {
    if (status == -1) return "could not run";
    if (status == kHung) return "did not end";
    if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
    if (WIFEXITED(status)) return "exit status " + std::to_string(WEXITSTATUS(status));
    return "wait status " + std::to_string(status);
}

TEST(ExitTest, EndingWhileCallsAndDeathNoticesAreInFlightExitsCleanly) {
    // Delays from 0 (the threads have barely started) to a few milliseconds (hundreds of
    // restarts, calls and notices under way), each with both ways out.
    for (int round = 0; round < 40; ++round) {
        const int delayUs = (round * 7919) % 5000;
        for (const char* how : {"return", "exit"}) {
            SCOPED_TRACE(std::string(how) + " after " + std::to_string(delayUs) + " us");
            const int status = runHelper(how, delayUs);
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << describe(status);
        }
    }
}

}  // namespace
