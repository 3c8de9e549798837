#pragma once

#include "Console.h"

namespace torqctl {

// A guided walk through every front end against the simulator: acquisition by action name and
// by id, state through both APIs, a request callback, listening (change, expiry, no-change),
// paths, thermal, notifications and rules, history, power mode and properties, a dump, release
// and fallback, then a HAL death and the reconnection of both front ends. Each step checks what
// the library returned and what the HAL received. Returns kExitOk only if every step passed.
int runTour(Console& console);

}  // namespace torqctl
