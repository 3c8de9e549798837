#include "Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>

namespace torqctl_test {

namespace {

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

}  // namespace

std::vector<std::string> RunResult::outLines() const {
    return splitLines(out);
}

std::vector<std::string> RunResult::errLines() const {
    return splitLines(err);
}

RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::string& input, int timeoutMs) {
    RunResult result;
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe(inPipe) != 0 || pipe(outPipe) != 0 || pipe(errPipe) != 0) return result;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(inPipe[0], STDIN_FILENO);
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) {
            close(fd);
        }
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(program.c_str()));
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    // The inputs are small: written at once, then closed so the child sees the end.
    signal(SIGPIPE, SIG_IGN);
    size_t written = 0;
    while (written < input.size()) {
        const ssize_t n = write(inPipe[1], input.data() + written, input.size() - written);
        if (n <= 0) break;
        written += static_cast<size_t>(n);
    }
    close(inPipe[1]);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  deadline - std::chrono::steady_clock::now())
                                  .count();
        if (left <= 0) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        if (poll(fds, 2, static_cast<int>(left)) < 0) break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buf[4096];
            const ssize_t n = read(fds[i].fd, buf, sizeof(buf));
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto& f : fds) {
        if (f.fd >= 0) close(f.fd);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

RunResult torqctl(const std::vector<std::string>& args, const std::string& input, int timeoutMs) {
    return run(TORQCTL_PATH, args, input, timeoutMs);
}

}  // namespace torqctl_test
