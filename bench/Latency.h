#pragma once

// Per-call latencies of one benchmark run, kept as a histogram so that recording a call costs
// two clock reads and one increment, and allocates nothing.
//
// A shared machine delays some calls by a whole scheduler round (a binder thread preempted, a
// wake-up from sleep) while most take the direct path. The mean of a run mixes the two in
// proportions that change from run to run; the median call does not, so it is what the
// comparisons use.

#include <chrono>
#include <cstdint>
#include <vector>

namespace zel_bench {

class LatencyHistogram {
  public:
    static constexpr int64_t kResolutionNs = 5;
    static constexpr int64_t kRangeNs = 500000;  // slower calls land in one overflow bucket

    LatencyHistogram() : buckets_(kRangeNs / kResolutionNs + 1, 0) {}

    void add(int64_t ns) {
        if (ns < 0) ns = 0;
        const int64_t bucket = ns / kResolutionNs;
        ++buckets_[bucket < static_cast<int64_t>(buckets_.size()) ? bucket : buckets_.size() - 1];
        ++count_;
    }

    uint64_t count() const { return count_; }

    // The latency below which a fraction q of the calls fall (bucket middle), in nanoseconds.
    double quantileNs(double q) const;

  private:
    std::vector<uint64_t> buckets_;
    uint64_t count_ = 0;
};

using Clock = std::chrono::steady_clock;

inline int64_t nanosBetween(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count();
}

// What two back-to-back clock reads cost (median), to take out of each measured call.
double timerOverheadNs();

}  // namespace zel_bench
