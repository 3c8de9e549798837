#pragma once

// Collects the results of a benchmark run and turns them into the table of ratios.

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace zel_bench {

// Counters every benchmark reports: heap allocations per call, and the median latency of one
// call in nanoseconds.
extern const char* const kAllocationsCounter;
extern const char* const kMedianCounter;

// A repetition whose median call took more than this many times the benchmark's fastest
// repetition was disturbed: another process had a CPU the caller or the HAL thread needed, and
// the calls waited for the scheduler (a few microseconds to wake a thread, tens when both share a
// CPU) instead of running. Such repetitions measure the machine, not the call.
constexpr double kDisturbedFactor = 1.5;
// Fewer undisturbed repetitions than this leave a comparison unjudged ("noisy").
constexpr int kMinUndisturbed = 5;

// What one benchmark measured.
struct Measured {
    bool ran = false;
    bool failed = false;
    std::string error;
    // Median over the undisturbed repetitions of each repetition's median call.
    double medianMicros = 0;
    // Interquartile range of those repetitions, relative to the median (0.05 = 5 %).
    double spread = 0;
    double allocationsPerCall = 0;  // median over all repetitions (they do not depend on timing)
    int repetitions = 0;
    int undisturbed = 0;
};

// Keeps every repetition and shows the console only the aggregates (or the single run when there
// is one repetition).
class CollectingReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override;

    // By registered benchmark name; a benchmark that did not run is absent.
    std::map<std::string, Measured> results() const;

  private:
    struct Samples {
        std::vector<double> micros;
        std::vector<double> allocations;
        bool failed = false;
        std::string error;
    };
    std::map<std::string, Samples> samples_;
};

// One row of the table: `call` measured against `reference`.
struct Comparison {
    std::string label;
    std::string call;       // benchmark name
    std::string reference;  // benchmark name of what it is compared with
    double maxRatio = 1.0;
    // The library's own allocations (those of `call` beyond those of `reference`) must be 0.
    bool noOwnAllocations = false;
};

struct Verdict {
    int passed = 0;
    int failed = 0;
    int noisy = 0;
    int notRun = 0;
};

// Prints the table. With `judge` false every row says "n/a" instead of pass or fail; a row whose
// call or floor has too few undisturbed repetitions says "noisy".
Verdict printTable(std::ostream& out, const std::vector<Comparison>& rows,
                   const std::map<std::string, Measured>& results, bool judge,
                   bool countAllocations);

// Prints the local parts (no HAL call): time per run and allocations per run.
void printParts(std::ostream& out, const std::vector<std::string>& names,
                const std::map<std::string, Measured>& results, bool countAllocations);

}  // namespace zel_bench
