#pragma once

// Where torqctl's HAL comes from: a HAL declared on the system, or (host only) the reference
// simulator in an emulated process. Only the simulator lets torqctl see what the HAL received and
// kill or restart it.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "torq_sim/Journal.h"
#include "torq_sim/SimModel.h"

namespace torqctl {

constexpr char kSimulatorFailed[] = "the simulator could not register the HAL";

// As it stands, a declared HAL; the simulator overrides what only it can do.
class Backend {
  public:
    virtual ~Backend() = default;

    // Only the simulator's is shown (by the tour, which needs it).
    virtual std::string description() const { return "declared HAL"; }
    // The journal, dump output and kill/restart need the simulator.
    virtual bool simulated() const { return false; }
    // False after kill-hal until the HAL is back.
    virtual bool halUp() const { return true; }

    virtual uint64_t journalMark() const { return 0; }
    virtual std::vector<torq_sim::JournalEntry> journalSince(uint64_t /*mark*/) const { return {}; }
    virtual std::vector<std::string> takeDumpOutput() { return {}; }
    // Only the simulator can be killed (false when it is not running; torqctl also kills it
    // before exit) and restarted (false when it could not register the HAL, kSimulatorFailed).
    virtual bool killHal() { return false; }
    virtual bool restartHal() { return false; }
    // Runs `fn` on the simulator's model, if there is one (and it is alive).
    virtual void inspect(const std::function<void(const torq_sim::SimModel&)>& /*fn*/) const {}
};

// A declared HAL, checked to be running, or null with `error` set.
std::unique_ptr<Backend> openDeclaredHal(std::string* error);

// The platform's choice: a declared HAL if there is one; otherwise, unless `noSim`, the embedded
// simulator where the platform has one (host). Null with `error` set when neither works.
std::unique_ptr<Backend> openBackend(bool noSim, std::string* error);

}  // namespace torqctl
