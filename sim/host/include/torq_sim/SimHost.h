#pragma once

// HOST ONLY. Runs the simulator as the Torq HAL of the emulated binder world: in an emulated
// process of its own, registered as "vendor.quarn.hardware.torq.ITorq/default" and declared in
// the emulated manifest, with a timer that expires timed requests as time passes. The HAL can be
// killed (as if it crashed: clients get death notices) and started again; the journal outlives
// both, so "what the HAL received" covers every incarnation.

#include <binder_host/process.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "torq_sim/Journal.h"
#include "torq_sim/SimModel.h"
#include "torq_sim/SimTorq.h"

namespace torq_sim {

class SimHost {
  public:
    struct Options {
        Clock clock;           // default: steady clock
        bool declare = true;   // declare the instance in the emulated manifest
        bool autoTick = true;  // expire timed requests from a timer thread
        std::string processName = "torq-sim";
    };

    SimHost();
    explicit SimHost(Options options);
    ~SimHost();  // kills the HAL process and undeclares the instance
    SimHost(const SimHost&) = delete;
    SimHost& operator=(const SimHost&) = delete;

    // Starts the HAL (a fresh model) unless it runs already. False if registration failed.
    bool start();
    // The HAL process dies: its registration disappears, death notices fire. The instance
    // stays declared, as on a device where init would bring the service back.
    void kill();
    // kill() then start(): a new process with a fresh model (nothing survives but the journal).
    bool restart();
    bool alive() const;
    binder_host::ProcessId pid() const;
    // How many times start() brought a HAL up.
    int generation() const;

    // Runs the model's expiry now, in the HAL's process (what the timer does).
    void tick();

    const std::shared_ptr<Journal>& journal() const { return journal_; }
    // The live HAL object, or null while dead. Direct access for inspection.
    std::shared_ptr<SimTorq> hal() const;
    // Runs `fn` on the live model; false while the HAL is dead.
    bool inspect(const std::function<void(const SimModel&)>& fn) const;
    // Lines that dump commands printed since the last call.
    std::vector<std::string> takeDumpOutput();

  private:
    void timerLoop();
    void stopTimer();

    Options options_;
    Clock clock_;
    std::shared_ptr<Journal> journal_;
    mutable std::mutex mutex_;
    std::shared_ptr<SimTorq> hal_;
    binder_host::ProcessId pid_ = 0;
    int generation_ = 0;
    std::vector<std::string> dumpLines_;

    std::mutex timerMutex_;
    std::condition_variable timerCv_;
    bool timerStop_ = false;
    std::thread timer_;
};

}  // namespace torq_sim
