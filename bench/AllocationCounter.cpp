#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

// Plain thread-local counter: no atomics and no locks on the path being measured.
thread_local uint64_t t_allocations = 0;

std::atomic<bool> g_countAllThreads{false};
std::atomic<uint64_t> g_allThreadAllocations{0};

}  // namespace

namespace zel_bench {

bool allocationCountingEnabled() {
    return ZEL_BENCH_COUNT_ALLOCATIONS != 0;
}

uint64_t allocationsOnThisThread() {
    return t_allocations;
}

uint64_t startCountingAllThreads() {
    g_countAllThreads.store(true, std::memory_order_seq_cst);
    return g_allThreadAllocations.load(std::memory_order_seq_cst);
}

uint64_t stopCountingAllThreads() {
    g_countAllThreads.store(false, std::memory_order_seq_cst);
    return g_allThreadAllocations.load(std::memory_order_seq_cst);
}

}  // namespace zel_bench

#if ZEL_BENCH_COUNT_ALLOCATIONS

// Every form of the global operator new and delete is replaced, so that each new is paired with
// the matching delete. The shared libraries of the process bind to these definitions too.

namespace {

void countAllocation() {
    ++t_allocations;
    if (g_countAllThreads.load(std::memory_order_relaxed)) {
        g_allThreadAllocations.fetch_add(1, std::memory_order_relaxed);
    }
}

void* countedAllocate(std::size_t size) {
    countAllocation();
    if (size == 0) size = 1;
    for (;;) {
        if (void* p = std::malloc(size)) return p;
        std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) throw std::bad_alloc();
        handler();
    }
}

void* countedAllocateAligned(std::size_t size, std::align_val_t alignment) {
    countAllocation();
    const auto align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a size that is a multiple of the alignment.
    std::size_t rounded = (size + align - 1) / align * align;
    if (rounded == 0) rounded = align;
    for (;;) {
        if (void* p = std::aligned_alloc(align, rounded)) return p;
        std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) throw std::bad_alloc();
        handler();
    }
}

}  // namespace

void* operator new(std::size_t size) {
    return countedAllocate(size);
}
void* operator new[](std::size_t size) {
    return countedAllocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedAllocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedAllocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return countedAllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return countedAllocateAligned(size, alignment);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return countedAllocateAligned(size, alignment);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return countedAllocateAligned(size, alignment);
    } catch (...) {
        return nullptr;
    }
}

void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}

#endif  // ZEL_BENCH_COUNT_ALLOCATIONS
