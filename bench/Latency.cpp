#include "Latency.h"

#include <cmath>

namespace zel_bench {

double LatencyHistogram::quantileNs(double q) const {
    if (count_ == 0) return 0;
    const auto rank = static_cast<uint64_t>(std::ceil(q * static_cast<double>(count_)));
    uint64_t seen = 0;
    for (size_t i = 0; i < buckets_.size(); ++i) {
        seen += buckets_[i];
        if (seen >= rank && seen > 0) {
            return (static_cast<double>(i) + 0.5) * static_cast<double>(kResolutionNs);
        }
    }
    return static_cast<double>(kRangeNs);
}

double timerOverheadNs() {
    LatencyHistogram histogram;
    for (int i = 0; i < 200000; ++i) {
        const Clock::time_point start = Clock::now();
        const Clock::time_point end = Clock::now();
        histogram.add(nanosBetween(start, end));
    }
    return histogram.quantileNs(0.5);
}

}  // namespace zel_bench
