#pragma once

// The simulator served as a Torq HAL: a BnTorq in front of SimModel. Every call is recorded in
// the journal with its arguments and answer; callbacks the model asks for are made after the
// model's lock is released, and a client that can no longer be reached loses its listeners.
// A script (see Script.h) can override the model's answer per method, and the HAL holds every
// callback it was given until told to drop them, so that a test can call one back at will.
// Builds for the device too: it uses nothing but NDK binder, the AIDL stubs and liblog.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "torq_sim/Journal.h"
#include "torq_sim/Script.h"
#include "torq_sim/SimModel.h"

namespace torq_sim {

extern const char* const kTorqInstance;  // "vendor.quarn.hardware.torq.ITorq/default"

class SimTorq : public ::aidl::vendor::quarn::hardware::torq::BnTorq {
  public:
    struct Options {
        Clock clock;                       // default: steady clock
        std::shared_ptr<Journal> journal;  // default: a journal of its own
        // Receives the lines of each dump command; default: the Android log, tag "torq-sim".
        std::function<void(const std::vector<std::string>&)> dumpSink;
        std::shared_ptr<Script> script;  // default: a script of its own (no scripted answers)
        // False: the model calls no client back on its own (no request answers, no listener
        // notices); only invokeHeldCallback does. For tests that drive every callback by hand.
        bool modelCallbacks = true;
    };

    SimTorq();
    explicit SimTorq(Options options);
    ~SimTorq() override;

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus release(int32_t handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                      std::vector<TorqRequestData>* _aidl_return) override;
    ::ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                           const std::shared_ptr<ITorqCallback>& callback,
                                           int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus propertyGet(const std::string& name, std::string* _aidl_return) override;
    ::ndk::ScopedAStatus propertySet(const std::string& name, const std::string& value,
                                     int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                  const std::shared_ptr<ITorqCallback>& callback,
                                                  int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus notifyEvent(const TorqRequestParcel& parcel,
                                     int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t type, int64_t value,
                                           int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                                 const std::vector<TorqRequestData>& data,
                                 int32_t* _aidl_return) override;

    // `dumpsys` on a device: the simulator's tables and the end of its journal.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // Expires what is due and makes the resulting callbacks; the owner calls it from a timer.
    void tick();
    std::optional<int64_t> nextDeadline() const;
    int64_t now() const;

    // Runs `fn` on the model under the lock (read-only).
    void inspect(const std::function<void(const SimModel&)>& fn) const;
    const std::shared_ptr<Journal>& journal() const { return journal_; }
    /** The scripted answers this HAL applies. */
    const std::shared_ptr<Script>& script() const { return script_; }

    /**
     * The callbacks the HAL was given (the parcel's `callback` field or the callback argument),
     * in arrival order, held until dropCallbacks() or the HAL's end, whatever the model does
     * with them.
     */
    std::vector<std::shared_ptr<ITorqCallback>> heldCallbacks() const;
    /**
     * Calls onCallback of held callback `index` on the calling thread (run it on a thread of the
     * HAL's process) and journals it. STATUS_BAD_INDEX when no such callback is held.
     */
    ::ndk::ScopedAStatus invokeHeldCallback(size_t index,
                                            const std::vector<TorqRequestData>& records);
    /** Lets go of every held callback; the model keeps its listeners. Returns what it held. */
    std::vector<std::shared_ptr<ITorqCallback>> dropHeldCallbacks();

  private:
    // Serves one call: takes its scripted answer, holds its callbacks, runs `model` unless the
    // answer fails the call, journals the call and writes the out value.
    template <typename Out, typename Model>
    ::ndk::ScopedAStatus serve(ReceivedCall call,
                               std::vector<std::shared_ptr<ITorqCallback>> callbacks, Out* out,
                               Model&& model);

    // Takes the model's pending callbacks and dump lines, unlocks, then delivers them.
    void finish(std::unique_lock<std::mutex>& lock);

    Clock clock_;
    std::shared_ptr<Journal> journal_;
    std::function<void(const std::vector<std::string>&)> dumpSink_;
    std::shared_ptr<Script> script_;
    bool modelCallbacks_;
    mutable std::mutex mutex_;
    SimModel model_;
    mutable std::mutex heldMutex_;
    std::vector<std::shared_ptr<ITorqCallback>> held_;
};

}  // namespace torq_sim
