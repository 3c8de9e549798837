#pragma once

// Runs a program with some standard input and collects its output, with a time limit.

#include <string>
#include <vector>

namespace torqctl_test {

struct RunResult {
    int exitCode = -1;  // the exit status, or -1 when killed
    bool timedOut = false;
    std::string out;
    std::string err;
    std::vector<std::string> outLines() const;
    std::vector<std::string> errLines() const;
};

RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::string& input = "", int timeoutMs = 60000);

// torqctl as built alongside the tests.
RunResult torqctl(const std::vector<std::string>& args, const std::string& input = "",
                  int timeoutMs = 60000);

}  // namespace torqctl_test
