#pragma once

// Property checks of the fuzz targets. A broken property stops the run the way a crash does, so
// libFuzzer keeps the input that broke it.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition, what)                                                               \
    ((condition) ? (void)0                                                                        \
                 : (std::fprintf(stderr, "%s:%d: property broken: %s (%s)\n", __FILE__, __LINE__, \
                                 what, #condition),                                               \
                    std::abort()))
