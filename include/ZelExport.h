#pragma once

// The library is built with hidden visibility; only what carries ZEL_EXPORT is part of its ABI.
#define ZEL_EXPORT __attribute__((visibility("default")))
