#pragma once

// Counts heap allocations made through operator new on the calling thread.
//
// The library has no threads of its own: everything it allocates for a call is allocated on the
// caller's thread, so the count on that thread, minus the count of the bare transaction, is the
// library's own share.

#include <cstdint>

namespace zel_bench {

// False in builds that cannot replace operator new (sanitizers); the counts are then always 0.
bool allocationCountingEnabled();

// Allocations made on this thread since it started.
uint64_t allocationsOnThisThread();

// A window in which allocations on every thread are also counted (one shared atomic, so only
// while the window is open: the timed calls never pay for it). Each returns the shared count.
uint64_t startCountingAllThreads();
uint64_t stopCountingAllThreads();

}  // namespace zel_bench
