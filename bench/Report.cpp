#include "Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace zel_bench {

const char* const kAllocationsCounter = "allocs";
const char* const kMedianCounter = "p50_ns";

namespace {

// Linear interpolation between the closest ranks; q = 0.5 is the median.
double quantile(std::vector<double> values, double q) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const double rank = q * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(rank);
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (rank - static_cast<double>(below));
}

double counterOf(const benchmark::BenchmarkReporter::Run& run, const char* name) {
    auto it = run.counters.find(name);
    return it == run.counters.end() ? 0.0 : static_cast<double>(it->second.value);
}

std::string fixed(double value, int decimals) {
    std::ostringstream s;
    s << std::fixed << std::setprecision(decimals) << value;
    return s.str();
}

std::string targetText(const Comparison& row, bool countAllocations) {
    std::string text = "<=" + fixed(row.maxRatio, 2);
    if (row.noOwnAllocations && countAllocations) text += ", 0 own";
    return text;
}

}  // namespace

void CollectingReporter::ReportRuns(const std::vector<Run>& runs) {
    std::vector<Run> shown;
    for (const Run& run : runs) {
        Samples& s = samples_[run.run_name.function_name];
        if (run.error_occurred) {
            s.failed = true;
            s.error = run.error_message;
        } else if (run.run_type == Run::RT_Iteration) {
            s.micros.push_back(counterOf(run, kMedianCounter) / 1e3);
            s.allocations.push_back(counterOf(run, kAllocationsCounter));
        }
        if (run.error_occurred || run.run_type == Run::RT_Aggregate || run.repetitions <= 1) {
            shown.push_back(run);
        }
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
}

std::map<std::string, Measured> CollectingReporter::results() const {
    std::map<std::string, Measured> out;
    for (const auto& [name, s] : samples_) {
        Measured m;
        m.ran = true;
        m.failed = s.failed;
        m.error = s.error;
        m.repetitions = static_cast<int>(s.micros.size());
        std::vector<double> undisturbed;
        if (!s.micros.empty()) {
            const double fastest = *std::min_element(s.micros.begin(), s.micros.end());
            for (double micros : s.micros) {
                if (micros <= kDisturbedFactor * fastest) undisturbed.push_back(micros);
            }
        }
        m.undisturbed = static_cast<int>(undisturbed.size());
        m.medianMicros = quantile(undisturbed, 0.5);
        if (m.medianMicros > 0) {
            m.spread = (quantile(undisturbed, 0.75) - quantile(undisturbed, 0.25)) / m.medianMicros;
        }
        m.allocationsPerCall = quantile(s.allocations, 0.5);
        out[name] = m;
    }
    return out;
}

Verdict printTable(std::ostream& out, const std::vector<Comparison>& rows,
                   const std::map<std::string, Measured>& results, bool judge,
                   bool countAllocations) {
    Verdict verdict;
    size_t labelWidth = 4;
    for (const Comparison& row : rows) labelWidth = std::max(labelWidth, row.label.size());

    char line[512];
    const char* header = "%-*s %9s %6s %5s %9s %6s %5s %7s %-15s %-6s %6s %6s %5s  %s\n";
    const char* body =
            "%-*s %9.3f %5.1f%% %5s %9.3f %5.1f%% %5s %7.3f %-15s %-6s %6s %6s %5s  %s\n";
    std::snprintf(line, sizeof(line), header, static_cast<int>(labelWidth), "call", "median us",
                  "iqr", "reps", "floor us", "iqr", "reps", "ratio", "target", "result", "allocs",
                  "floor", "own", "floor measured by");
    out << line;
    out << std::string(labelWidth + 125, '-') << "\n";

    for (const Comparison& row : rows) {
        auto call = results.find(row.call);
        auto reference = results.find(row.reference);
        const bool ran = call != results.end() && reference != results.end();
        if (!ran) {
            ++verdict.notRun;
            std::snprintf(line, sizeof(line), header, static_cast<int>(labelWidth),
                          row.label.c_str(), "-", "-", "-", "-", "-", "-", "-",
                          targetText(row, countAllocations).c_str(), "skip", "-", "-", "-",
                          row.reference.c_str());
            out << line;
            continue;
        }
        const Measured& c = call->second;
        const Measured& r = reference->second;
        const bool broken = c.failed || r.failed;
        const double ratio = r.medianMicros > 0 ? c.medianMicros / r.medianMicros : INFINITY;
        const double own = c.allocationsPerCall - r.allocationsPerCall;
        bool pass = !broken && ratio <= row.maxRatio;
        if (row.noOwnAllocations) {
            // Averages over many calls: anything below half an allocation per call is noise from
            // one-off work (a thread starting, a container growing once).
            if (countAllocations && std::fabs(own) >= 0.5) pass = false;
        }
        const bool noisy = c.undisturbed < kMinUndisturbed || r.undisturbed < kMinUndisturbed;
        const char* result = broken   ? "error"
                             : !judge ? "n/a"
                             : noisy  ? "noisy"
                             : pass   ? "pass"
                                      : "FAIL";
        if (broken) {
            ++verdict.failed;
        } else if (judge && noisy) {
            ++verdict.noisy;
        } else if (judge) {
            pass ? ++verdict.passed : ++verdict.failed;
        }
        auto reps = [](const Measured& m) {
            return std::to_string(m.undisturbed) + "/" + std::to_string(m.repetitions);
        };
        auto count = [countAllocations](double value) {
            if (!countAllocations) return std::string("n/a");
            return fixed(std::fabs(value) < 0.05 ? 0.0 : value, 1);  // no "-0.0"
        };
        std::snprintf(line, sizeof(line), body, static_cast<int>(labelWidth), row.label.c_str(),
                      c.medianMicros, c.spread * 100, reps(c).c_str(), r.medianMicros,
                      r.spread * 100, reps(r).c_str(), ratio,
                      targetText(row, countAllocations).c_str(), result,
                      count(c.allocationsPerCall).c_str(), count(r.allocationsPerCall).c_str(),
                      count(own).c_str(), row.reference.c_str());
        out << line;
        if (broken) {
            out << "    error: " << (c.failed ? c.error : r.error) << "\n";
        }
    }
    return verdict;
}

void printParts(std::ostream& out, const std::vector<std::string>& names,
                const std::map<std::string, Measured>& results, bool countAllocations) {
    size_t width = 4;
    for (const std::string& name : names) width = std::max(width, name.size());
    char line[256];
    for (const std::string& name : names) {
        auto it = results.find(name);
        if (it == results.end()) continue;
        const Measured& m = it->second;
        const std::string allocs =
                countAllocations ? fixed(m.allocationsPerCall, 1) + " allocs" : std::string();
        std::snprintf(line, sizeof(line), "  %-*s %9.1f ns  %s\n", static_cast<int>(width),
                      name.c_str(), m.medianMicros * 1e3, allocs.c_str());
        out << line;
    }
}

}  // namespace zel_bench
