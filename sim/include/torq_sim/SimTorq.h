#pragma once

// The simulator served as a Torq HAL: a BnTorq in front of SimModel. Every call is recorded in
// the journal with its arguments and answer; callbacks the model asks for are made after the
// model's lock is released, and a client that can no longer be reached loses its listeners.
// Builds for the device too: it uses nothing but NDK binder, the AIDL stubs and liblog.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "torq_sim/Journal.h"
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

  private:
    // Takes the model's pending callbacks and dump lines, unlocks, then delivers them.
    void finish(std::unique_lock<std::mutex>& lock);

    Clock clock_;
    std::shared_ptr<Journal> journal_;
    std::function<void(const std::vector<std::string>&)> dumpSink_;
    mutable std::mutex mutex_;
    SimModel model_;
};

}  // namespace torq_sim
