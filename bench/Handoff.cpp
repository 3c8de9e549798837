#include "Handoff.h"

#include <atomic>
#include <thread>

#include "AllocationCounter.h"
#include "Latency.h"
#include "Report.h"

namespace zel_bench {
namespace {

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

}  // namespace

void measureHandoff(benchmark::State& state, double timerOverheadNs) {
    LatencyHistogram latencies;
    // Odd: a request is waiting for the partner; even: the reply is back. 0 tells it to stop.
    std::atomic<uint64_t> turn{2};
    std::atomic<bool> stop{false};
    std::thread partner([&] {
        uint64_t seen = 2;
        for (;;) {
            uint64_t now = turn.load(std::memory_order_acquire);
            while (now == seen) {
                if (stop.load(std::memory_order_relaxed)) return;
                cpuRelax();
                now = turn.load(std::memory_order_acquire);
            }
            turn.store(now + 1, std::memory_order_release);  // the reply
            seen = now + 1;
        }
    });
    uint64_t next = 3;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        turn.store(next, std::memory_order_release);
        while (turn.load(std::memory_order_acquire) != next + 1) cpuRelax();
        const Clock::time_point end = Clock::now();
        latencies.add(nanosBetween(start, end) - static_cast<int64_t>(timerOverheadNs));
        next += 2;
    }
    stop.store(true, std::memory_order_relaxed);
    partner.join();
    state.counters[kAllocationsCounter] = 0;
    state.counters[kMedianCounter] = latencies.quantileNs(0.5);
}

double allocationsPerCallAllThreads(const std::function<bool()>& call, int calls) {
    if (!allocationCountingEnabled() || calls <= 0) return 0;
    call();  // warm: proxies, thread-local caches, the binder thread itself
    const uint64_t before = startCountingAllThreads();
    for (int i = 0; i < calls; ++i) call();
    const uint64_t counted = stopCountingAllThreads() - before;
    return static_cast<double>(counted) / static_cast<double>(calls);
}

}  // namespace zel_bench
