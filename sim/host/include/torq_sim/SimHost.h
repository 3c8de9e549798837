#pragma once

// HOST ONLY. The reference Torq HAL for host programs and their tests: runs the simulator in an
// emulated process of its own of the host binder world, registered as
// "vendor.quarn.hardware.torq.ITorq/default" and (by default) declared in the emulated manifest,
// with a timer that expires timed requests as time passes.
//
// Besides the simulator's own behaviour (the default), a test can script the answer of any
// method, read every call the HAL received (unmarshalled in the HAL's process), call back the
// callbacks the HAL was given, and kill the HAL (clients get death notices) and start it again.
// The journal and the scripted answers outlive each HAL instance, so "what the HAL received"
// covers every incarnation.
//
// Errors: a request the simulator cannot honour (an unknown method name, an answer with an out
// value the method does not have, a restart of a HAL that is running, a callback index the HAL
// does not hold, ...) throws std::invalid_argument with a message saying why; nothing is changed.

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <binder_host/process.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "torq_sim/Journal.h"
#include "torq_sim/Script.h"
#include "torq_sim/SimModel.h"
#include "torq_sim/SimTorq.h"

namespace torq_sim {

using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;

/** The Torq HAL simulator in an emulated process of its own. Thread-safe. */
class SimHost {
  public:
    /** How the HAL is set up. */
    struct Options {
        Clock clock;           // default: steady clock
        bool declare = true;   // declare the instance in the emulated manifest on start()
        bool autoTick = true;  // expire timed requests from a timer thread
        // False: the model calls no client back on its own (no answers to requests with a
        // callback, no listener notices); only invokeCallback() does. For tests that drive every
        // callback by hand.
        bool modelCallbacks = true;
        std::string processName = "torq-sim";
    };

    /** A HAL not yet started (start() brings it up). */
    SimHost();
    /** A HAL not yet started, set up by `options`. */
    explicit SimHost(Options options);
    /** Kills the HAL process and undeclares the instance if this host declared it. */
    ~SimHost();
    SimHost(const SimHost&) = delete;
    SimHost& operator=(const SimHost&) = delete;

    // --- Life ---------------------------------------------------------------------------------

    /**
     * Starts the HAL (a fresh model) in a new emulated process, registers it and, with
     * Options::declare, declares it. Does nothing if it runs already. False if registration
     * failed.
     */
    bool start();
    /**
     * The HAL process dies as if it crashed: its registration disappears, clients get death
     * notices, the callbacks it held are let go. The instance stays declared, as on a device
     * where init would bring the service back. Does nothing when the HAL is not running.
     */
    void kill();
    /**
     * Starts a killed HAL again: a new process with a fresh model (the journal and the scripted
     * answers carry over). Throws std::invalid_argument when the HAL is running: kill it first.
     */
    bool restart();
    /** Whether the HAL process is alive and serving. */
    bool alive() const;
    /** The HAL's emulated process (the last one started; 0 before the first start). */
    binder_host::ProcessId pid() const;
    /** How many times start() brought a HAL up. */
    int generation() const;

    /**
     * Declares the instance in the emulated manifest without starting the HAL: clients that ask
     * whether it is declared hear yes and then wait for it (a HAL "declared but not running").
     */
    void declare();
    /** Removes the instance from the emulated manifest (a HAL that is "not declared"). */
    void undeclare();

    /** Runs the model's expiry now, in the HAL's process (what the timer does). */
    void tick();

    // --- Scripted answers ---------------------------------------------------------------------

    /**
     * Answers every later call of `method` (an ITorq method name, e.g. "request") with `answer`
     * instead of the model. A failing status (exception, service-specific error, transaction
     * error) replaces the model, which then never sees the call; with an OK status the model
     * handles the call and the out values set in `answer` replace its own. Throws
     * std::invalid_argument for an unknown method or an out value the method does not have.
     */
    void setAnswer(const std::string& method, const SentAnswer& answer);
    /** As setAnswer, for the next call of `method` only (queued after earlier once-answers). */
    void answerOnce(const std::string& method, const SentAnswer& answer);
    /** The model answers `method` again. Throws std::invalid_argument for an unknown method. */
    void clearAnswers(const std::string& method);
    /** The model answers every method again. */
    void clearAnswers();
    /**
     * Calls of `method` wait in the HAL after they are recorded and answered, so that they stay
     * in flight, until releaseHeld() or the HAL's death. Throws std::invalid_argument for an
     * unknown method.
     */
    void holdCalls(const std::string& method);
    /** Lets every held call return and holds no method any more. */
    void releaseHeld();

    // --- What the HAL received ----------------------------------------------------------------

    /** Every call since the start (or clearCalls()), in arrival order, as the HAL received it. */
    std::vector<ReceivedCall> calls() const;
    /** The calls of `method`. Throws std::invalid_argument for an unknown method. */
    std::vector<ReceivedCall> calls(const std::string& method) const;
    /** The last call of `method`. Throws std::invalid_argument when none arrived. */
    ReceivedCall last(const std::string& method) const;
    /** How many calls of `method` arrived. Throws std::invalid_argument for an unknown method. */
    size_t count(const std::string& method) const;
    /** Forgets the calls received so far (the journal keeps them). */
    void clearCalls();
    /** Waits until at least `n` calls of `method` arrived. False on timeout. */
    bool waitForCalls(const std::string& method, size_t n, int64_t timeoutMs = 5000) const;

    // --- Callbacks the HAL was given ----------------------------------------------------------

    /**
     * How many callbacks the running HAL holds: each one it received (in a parcel's `callback`
     * field or as the callback argument), in arrival order, until dropCallbacks() or its death.
     */
    size_t callbackCount() const;
    /**
     * Calls onCallback(records) of held callback `index` from a thread of the HAL process and
     * returns the status the call got (STATUS_DEAD_OBJECT when the client process died). Throws
     * std::invalid_argument when the HAL is not running or holds no such callback.
     */
    ::ndk::ScopedAStatus invokeCallback(size_t index, const std::vector<TorqRequestData>& records);
    /** The HAL lets go of every callback it holds (its model keeps its own listeners). */
    void dropCallbacks();

    // --- Inspection ---------------------------------------------------------------------------

    /** Everything the HAL received, sent and lived through, across restarts. */
    const std::shared_ptr<Journal>& journal() const { return journal_; }
    /** The live HAL object, or null while dead. Direct access for inspection. */
    std::shared_ptr<SimTorq> hal() const;
    /** Runs `fn` on the live model; false while the HAL is dead. */
    bool inspect(const std::function<void(const SimModel&)>& fn) const;
    /** Lines that dump commands printed since the last call. */
    std::vector<std::string> takeDumpOutput();

  private:
    // The live HAL object (null while dead) and its process, read together under mutex_.
    std::pair<std::shared_ptr<SimTorq>, binder_host::ProcessId> running() const;
    void timerLoop();
    void stopTimer();
    static void checkMethod(const std::string& method);

    Options options_;
    Clock clock_;
    std::shared_ptr<Journal> journal_;
    std::shared_ptr<Script> script_;
    mutable std::mutex mutex_;
    std::shared_ptr<SimTorq> hal_;
    binder_host::ProcessId pid_ = 0;
    int generation_ = 0;
    bool declared_ = false;
    uint64_t callsMark_ = 0;
    std::vector<std::string> dumpLines_;

    std::mutex timerMutex_;
    std::condition_variable timerCv_;
    bool timerStop_ = false;
    std::thread timer_;
};

}  // namespace torq_sim
