#pragma once

// The floor under the transaction floor: a bare request/reply handoff between two threads.
//
// A host transaction hands a request to a binder thread of the HAL's process and waits for the
// reply. The least any such round trip can cost on this machine is two threads passing a turn back
// and forth through one atomic word while both spin: no marshalling, no queue, no sleep. The bare
// transaction is reported as a multiple of it.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>

namespace zel_bench {

// Benchmark body: times each round trip of the spin ping-pong on its own (like the calls, with
// `timerOverheadNs` taken off each) and reports the median. The partner thread spins only while
// the benchmark runs.
void measureHandoff(benchmark::State& state, double timerOverheadNs);

// Heap allocations made on every thread of the process while `call` runs `calls` times, per call:
// what a transaction allocates on both sides (the caller's and the binder thread's). Zero when
// allocations are not counted (sanitizer builds).
double allocationsPerCallAllThreads(const std::function<bool()>& call, int calls);

}  // namespace zel_bench
