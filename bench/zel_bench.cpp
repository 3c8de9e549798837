// What the library adds to a HAL call.
//
// Each front-end call is measured against the bare transaction it makes: the same ITorq method
// called directly on a proxy with a request built beforehand. Both reach the same HAL, which
// answers at once from its own emulated process, so the difference is the library's own work:
// the log lines (formatted, then dropped by a silent logger), the connection check, the lock,
// building the request and reading the answer.
//
// Usage: zel_bench [--zel_quick] [--zel_enforce] [Google Benchmark flags]
//   --zel_quick    one short repetition of each case; the table is printed without verdicts (for
//                  CI: it shows that every case runs and sends what its floor sends).
//   --zel_enforce  exit with status 1 when a target is missed.
// The exit status is 2 when something broke: a case lost the HAL, or a front end did not send the
// request its floor sends.

#include <android/log.h>
#include <benchmark/benchmark.h>
#include <binder_host/process.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AllocationCounter.h"
#include "BenchHal.h"
#include "Handoff.h"
#include "Latency.h"
#include "Report.h"
#include "Rows.h"
#include "ZelClient.h"
#include "ZelWrapper.h"

namespace zel_bench {
namespace {

// --- The cases ---------------------------------------------------------------------------------
// The workloads, the floors and the front-end rows are those of Rows.h, shared with
// zel_instructions.

struct Case : NamedCall {
    // Whether the HAL must see the same thing from this case as from `sameAs`.
    std::string sameAs;
};

std::vector<Case> buildCases(const std::vector<NamedCall>& floors, const std::vector<Row>& rows) {
    std::vector<Case> cases;
    for (const NamedCall& f : floors) cases.push_back(Case{f, ""});
    for (const Row& r : rows) cases.push_back(Case{r.call, r.floor});
    return cases;
}

std::vector<Comparison> comparisons(const std::vector<Row>& rows) {
    constexpr double kFrontEnd = 1.15;
    constexpr double kLookup = 1.05;
    constexpr double kHandoff = 2.5;
    std::vector<Comparison> out;
    for (const Row& r : rows) {
        out.push_back({r.label + (r.fastPath ? " (connection fast path)" : ""), r.call.name,
                       r.floor, kFrontEnd, r.fastPath});
        if (r.call.name == "ZelEventAcquireWrapper/last_action") {
            // The named actions are looked up: the last costs no more than the first.
            out.push_back({"ZelEventAcquireWrapper, last vs first",
                           "ZelEventAcquireWrapper/last_action",
                           "ZelEventAcquireWrapper/first_action", kLookup, false});
        }
    }
    // The host runtime itself: its smallest transaction next to a bare spin handoff between two
    // threads, the least any cross-thread round trip costs here.
    out.push_back({"ITorq::release vs thread handoff", "ITorq::release", "handoff/spin", kHandoff,
                   false});
    return out;
}

// --- Parts of the library's own share ----------------------------------------------------------
// Local work the front ends must do on every call, measured alone: formatting the log lines they
// are required to write, and the notification builders of the wrapper.

struct Part {
    std::string name;
    std::function<void()> work;
};

std::vector<Part> buildParts() {
    return {
            {"part/log line, no argument",
             [] {
                 __android_log_print(ANDROID_LOG_INFO, "TORQFramework-lib-vendor",
                                     "torq client torqResCtlRequest");
             }},
            {"part/log line, ZelEventAcquire",
             [] {
                 __android_log_print(ANDROID_LOG_INFO, "[ZEL_CLIENT]",
                                     "ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", kEventId,
                                     kPackage.c_str(), kIdentity.c_str());
             }},
            {"part/log line, ZelEventAcquireWrapper",
             [] {
                 __android_log_print(ANDROID_LOG_INFO, "[ZEL_CLIENT_WRAPPER]",
                                     "[%s] eventId:%s, scene:%s, identity:%s, timeout:%d",
                                     "ZelEventAcquireWrapper", kFirstAction.c_str(),
                                     kPackage.c_str(), kIdentity.c_str(), kDuration);
             }},
            {"part/log lines, ZelNotifyWapper src 130",
             [] {
                 __android_log_print(ANDROID_LOG_INFO, "[ZEL_CLIENT_WRAPPER]",
                                     "[%s] %s, src:%d, type:%d", "ZelNotifyWapper", "bench", 130, 1);
                 __android_log_print(ANDROID_LOG_INFO, "[ZEL_CLIENT]",
                                     "zelRuleCtl, ruleId:%d, status:%d", 130, 1);
             }},
            {"part/getTargetLoadList, 3 items",
             [] { benchmark::DoNotOptimize(getTargetLoadList(kTargetLoadData)); }},
            {"part/getGameAdpList, 16 items",
             [] { benchmark::DoNotOptimize(getGameAdpList(kGameAdpData)); }},
    };
}

// The mean of many runs: these take tens of nanoseconds, too little to time one by one.
void measurePart(benchmark::State& state, const std::function<void()>* work) {
    const uint64_t allocationsBefore = allocationsOnThisThread();
    const Clock::time_point start = Clock::now();
    for (auto _ : state) (*work)();
    const Clock::time_point end = Clock::now();
    const uint64_t allocations = allocationsOnThisThread() - allocationsBefore;
    state.counters[kAllocationsCounter] = benchmark::Counter(static_cast<double>(allocations),
                                                             benchmark::Counter::kAvgIterations);
    state.counters[kMedianCounter] =
            static_cast<double>(nanosBetween(start, end)) / static_cast<double>(state.iterations());
}

// --- Checks before measuring -------------------------------------------------------------------

std::string describe(const std::vector<SeenCall>& calls) {
    std::string text;
    for (const SeenCall& c : calls) {
        text += "    " + c.method;
        if (c.method == "ruleCtl") {
            text += " rule " + std::to_string(c.ruleId) + " status " + std::to_string(c.status);
            for (const TorqRequestData& d : c.entries) text += " " + d.toString();
        } else if (c.method == "release") {
            text += " handle " + std::to_string(c.handle);
        } else {
            text += " " + c.parcel.toString();
        }
        text += "\n";
    }
    return text;
}

bool sameCalls(const std::vector<SeenCall>& a, const std::vector<SeenCall>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].method != b[i].method || a[i].parcel != b[i].parcel ||
            a[i].handle != b[i].handle || a[i].ruleId != b[i].ruleId ||
            a[i].status != b[i].status || a[i].entries != b[i].entries) {
            return false;
        }
    }
    return true;
}

// Every case must get its answer, reach the HAL exactly once, and send the HAL exactly what its
// bare transaction sends; otherwise the two timings would not measure the same request.
bool checkCases(BenchHal& hal, const std::vector<Case>& cases) {
    bool ok = true;
    std::map<std::string, std::vector<SeenCall>> seen;
    for (const Case& c : cases) {
        hal.startCapture();
        const bool answered = c.call();
        seen[c.name] = hal.stopCapture();
        if (c.between) c.between();
        if (!answered) {
            std::cerr << "zel_bench: " << c.name << " did not get the HAL's answer\n";
            ok = false;
        } else if (seen[c.name].size() != 1) {
            std::cerr << "zel_bench: " << c.name << " made " << seen[c.name].size()
                      << " HAL calls instead of 1:\n"
                      << describe(seen[c.name]);
            ok = false;
        }
    }
    for (const Case& c : cases) {
        if (c.sameAs.empty()) continue;
        if (!sameCalls(seen[c.name], seen[c.sameAs])) {
            std::cerr << "zel_bench: " << c.name << " and " << c.sameAs
                      << " do not send the same request\n  " << c.name << ":\n"
                      << describe(seen[c.name]) << "  " << c.sameAs << ":\n"
                      << describe(seen[c.sameAs]);
            ok = false;
        }
    }
    return ok;
}

// --- Measuring ---------------------------------------------------------------------------------

// Subtracted from every per-call latency: the two clock reads around the call.
double g_timerOverheadNs = 0;

void measure(benchmark::State& state, BenchHal* hal, const Case* c) {
    LatencyHistogram latencies;  // allocated before counting starts
    uint64_t failures = 0;
    const uint64_t halCallsBefore = hal->callCount();
    const uint64_t allocationsBefore = allocationsOnThisThread();
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const bool answered = c->call();
        const Clock::time_point end = Clock::now();
        latencies.add(nanosBetween(start, end));
        if (!answered) ++failures;
        if (c->between) c->between();
    }
    const uint64_t allocations = allocationsOnThisThread() - allocationsBefore;
    const uint64_t halCalls = hal->callCount() - halCallsBefore;
    state.counters[kAllocationsCounter] = benchmark::Counter(static_cast<double>(allocations),
                                                             benchmark::Counter::kAvgIterations);
    state.counters[kMedianCounter] = latencies.quantileNs(0.5) - g_timerOverheadNs;
    if (failures != 0) {
        state.SkipWithError("a call did not get the HAL's answer");
    } else if (halCalls != static_cast<uint64_t>(state.iterations())) {
        state.SkipWithError("not exactly one HAL call per call");
    }
}

// --- The machine -------------------------------------------------------------------------------

std::string cpuModel() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line;
    while (std::getline(cpuinfo, line)) {
        if (line.rfind("model name", 0) == 0) {
            const size_t colon = line.find(':');
            if (colon != std::string::npos) return line.substr(colon + 2);
        }
    }
    return "unknown";
}

struct Load {
    double one = 0, five = 0, fifteen = 0;
};

Load loadAverage() {
    Load load;
    std::ifstream loadavg("/proc/loadavg");
    loadavg >> load.one >> load.five >> load.fifteen;
    return load;
}

std::string describe(const Load& load) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.2f %.2f %.2f", load.one, load.five, load.fifteen);
    return text;
}

void silentLogger(const __android_logger_data* /*data*/, const char* /*message*/) {}

}  // namespace
}  // namespace zel_bench

int main(int argc, char** argv) {
    using namespace zel_bench;

    bool quick = false;
    bool enforce = false;
    std::vector<std::string> args = {argv[0]};
    std::vector<std::string> user;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--zel_quick") == 0) {
            quick = true;
        } else if (std::strcmp(argv[i], "--zel_enforce") == 0) {
            enforce = true;
        } else {
            user.push_back(argv[i]);
        }
    }
    // Defaults first, so that flags given on the command line win.
    if (quick) {
        args.insert(args.end(), {"--benchmark_min_time=0.002", "--benchmark_repetitions=1"});
    } else {
        // Repetitions in random order spread the machine's noise over all cases alike; the
        // medians then compare like with like.
        args.insert(args.end(), {"--benchmark_min_time=0.025", "--benchmark_repetitions=40",
                                 "--benchmark_enable_random_interleaving=true"});
    }
    args.insert(args.end(), user.begin(), user.end());
    std::vector<char*> argvOut;
    for (std::string& a : args) argvOut.push_back(a.data());
    argvOut.push_back(nullptr);
    int argcOut = static_cast<int>(args.size());
    benchmark::Initialize(&argcOut, argvOut.data());
    if (benchmark::ReportUnrecognizedArguments(argcOut, argvOut.data())) return 2;

    // The lines are formatted as on a device (INFO and above) and then dropped.
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(silentLogger);

    const unsigned cpus = std::thread::hardware_concurrency();
    const Load before = loadAverage();
    if (!quick && before.one > 0.5 * cpus) {
        std::cerr << "zel_bench: load average " << describe(before) << " on " << cpus
                  << " CPUs: the machine is busy, expect noisy timings\n";
    }

    int status = 0;
    {
        BenchHal hal(stateAnswer());
        std::shared_ptr<ITorq> proxy = connectProxy();
        if (proxy == nullptr) {
            std::cerr << "zel_bench: no HAL proxy\n";
            return 2;
        }
        const Floors floors = buildFloors();
        Inputs inputs = buildInputs();
        const std::vector<Row> rows = frontEndRows(inputs);
        const std::vector<Case> cases = buildCases(floorCalls(proxy, floors), rows);

        g_timerOverheadNs = timerOverheadNs();

        // The first calls connect the front ends; the checks make them.
        if (!checkCases(hal, cases)) return 2;

        for (const Case& c : cases) {
            benchmark::RegisterBenchmark(c.name.c_str(), measure, &hal, &c)
                    ->Unit(benchmark::kMicrosecond)
                    ->UseRealTime();
        }
        benchmark::RegisterBenchmark("handoff/spin", measureHandoff, g_timerOverheadNs)
                ->Unit(benchmark::kMicrosecond)
                ->UseRealTime();
        const std::vector<Part> parts = buildParts();
        for (const Part& p : parts) {
            benchmark::RegisterBenchmark(p.name.c_str(), measurePart, &p.work)
                    ->Unit(benchmark::kNanosecond);
        }
        CollectingReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);

        const Load after = loadAverage();
        std::cout << "\nmachine: " << cpus << " CPUs, " << cpuModel() << "; load average "
                  << describe(before) << " before, " << describe(after) << " after\n"
                  << "median: of the per-call medians of the undisturbed repetitions (reps: "
                     "undisturbed/all; a repetition is disturbed when its median call is over "
                  << kDisturbedFactor
                  << "x the fastest repetition's); iqr: their interquartile range, % of the "
                     "median; ratio = median / floor median\n";
        if (allocationCountingEnabled()) {
            std::cout << "allocs: operator new calls per call on the caller's thread; own = "
                         "allocs beyond the floor's\n";
        }
        std::cout << "\n";
        const std::map<std::string, Measured> results = reporter.results();
        std::vector<std::string> partNames;
        for (const Part& p : parts) partNames.push_back(p.name);
        const Verdict verdict = printTable(std::cout, comparisons(rows), results, !quick,
                                           allocationCountingEnabled());
        if (!quick) {
            std::cout << "\n"
                      << verdict.passed << " target(s) met, " << verdict.failed << " missed";
            if (verdict.noisy > 0) {
                std::cout << ", " << verdict.noisy
                          << " not judged (too few undisturbed repetitions: run again on a quiet "
                             "machine)";
            }
            if (verdict.notRun > 0) std::cout << ", " << verdict.notRun << " not run";
            std::cout << "\n";
            if (verdict.failed > 0 && enforce) status = 1;
        }
        if (allocationCountingEnabled()) {
            // Both sides of the bare transaction: the caller's thread and the HAL's binder thread.
            for (const Case& c : cases) {
                if (c.name != "ITorq::release") continue;
                std::cout << "\n"
                          << c.name << ": "
                          << allocationsPerCallAllThreads(c.call, quick ? 100 : 10000)
                          << " allocs per call on all threads\n";
            }
        }
        std::cout << "\nparts of the own share (mean ns per run, median over the repetitions):\n";
        printParts(std::cout, partNames, results, allocationCountingEnabled());
        for (const auto& [name, m] : results) {
            if (m.failed) status = 2;  // something broke, in any mode
        }
    }
    // Every process but this one goes; death notices reach the front ends before exit.
    binder_host::reset();
    benchmark::Shutdown();
    return status;
}
