#pragma once

// The simulator's model of a Torq HAL: the resources it controls, the requests in force, the
// listeners it calls back, thermal levels, rules, history and properties. It has no binder of
// its own: SimTorq (SimTorq.h) serves it over ITorq, and tests drive it directly.
//
// Not thread-safe: the owner serialises calls. Time comes from an injected clock, so expiry can
// be tested without sleeping. Callbacks are not made from inside the model: each call queues the
// deliveries it causes, and the owner takes them (takeDeliveries) and makes them after letting
// go of its lock.

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace torq_sim {

using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

// Milliseconds on a monotonic clock.
using Clock = std::function<int64_t()>;
Clock steadyClock();

// Request kinds (TorqRequestParcel::kind).
constexpr int32_t kKindState = 0;
constexpr int32_t kKindResourceControl = 1;
constexpr int32_t kKindSaControl = 2;
constexpr int32_t kKindCommand = 5;
constexpr int32_t kKindThermalNotify = 7;
constexpr int32_t kKindEventAcquire = 8;
constexpr int32_t kKindNotify = 10;
constexpr int32_t kKindHistory = 11;
constexpr int32_t kKindPlatformAcquire = 12;
constexpr int32_t kKindPowerMode = 13;

// Command codes of kind 5: 0-8 dump one table, 10/11 switch history recording on/off.
constexpr int32_t kCommandDumpFirst = 0;
constexpr int32_t kCommandDumpLast = 8;
constexpr int32_t kCommandHistoryOn = 10;
constexpr int32_t kCommandHistoryOff = 11;

constexpr int32_t kResultOk = 0;
constexpr int32_t kRejected = -1;  // a refused request, unknown handle or invalid argument

constexpr size_t kHistoryCapacity = 256;
constexpr size_t kPropertyValueMax = 255;  // longer values are refused

// Properties with a meaning of their own; any other name is a plain stored text.
extern const char* const kPropVersion;    // read-only
extern const char* const kPropPowerMode;  // "0".."3", see Catalog.h
extern const char* const kPropHistory;    // "1" recording, "0" not
extern const char* const kSimVersion;

// Names of the tables that dump codes 0-8 print.
const char* dumpTableName(int32_t code);

// One callback the model wants made.
struct Delivery {
    enum class Reason { kRequestAnswer, kListener, kThermalListener };
    Reason reason = Reason::kListener;
    int32_t handle = 0;  // the request or registration it belongs to
    std::shared_ptr<ITorqCallback> callback;
    std::vector<TorqRequestData> records;
};

class SimModel {
  public:
    explicit SimModel(Clock clock = steadyClock());

    // The ITorq calls. Each first expires whatever is due.
    void init();
    int32_t request(const TorqRequestParcel& parcel);
    int32_t release(int32_t handle);
    std::vector<TorqRequestData> stateRequest(const TorqRequestParcel& parcel);
    int32_t listeningRegister(const TorqRequestParcel& parcel,
                              const std::shared_ptr<ITorqCallback>& callback);
    int32_t listeningUnregister(int32_t handle);
    std::string propertyGet(const std::string& name);
    int32_t propertySet(const std::string& name, const std::string& value);
    int32_t thermalListeningRegister(const std::vector<int32_t>& ids,
                                     const std::shared_ptr<ITorqCallback>& callback);
    int32_t thermalListeningUnregister(int32_t handle);
    int32_t notifyEvent(const TorqRequestParcel& parcel);
    int32_t setRelatedSysInfo(int32_t type, int64_t value);
    int32_t ruleCtl(int32_t ruleId, int32_t status, const std::vector<TorqRequestData>& data);

    // Expires requests whose duration has run out (also done at the start of every call).
    void tick();
    // When the next timed request expires, if any.
    std::optional<int64_t> nextDeadline() const;

    std::vector<Delivery> takeDeliveries();
    // Lines printed by dump commands since the last take.
    std::vector<std::string> takeDumpOutput();
    // A callback that can no longer be reached: its registrations are dropped.
    void forgetCallback(const std::shared_ptr<ITorqCallback>& callback);

    // Inspection, for dumps, torqctl and tests.
    int64_t now() const { return clock_(); }
    std::optional<std::string> value(int32_t opcode) const;
    std::optional<std::string> valueAtPath(const std::string& path) const;
    std::optional<std::string> thermalLevel(int32_t id) const;
    bool historyRecording() const { return historyOn_; }
    std::vector<std::string> history() const { return {history_.begin(), history_.end()}; }
    int32_t powerMode() const { return powerMode_; }
    std::optional<int32_t> ruleStatus(int32_t ruleId) const;
    std::optional<int64_t> sysInfo(int32_t type) const;
    bool isActive(int32_t handle) const { return requests_.count(handle) != 0; }
    bool isListener(int32_t handle) const { return listeners_.count(handle) != 0; }
    size_t activeCount() const { return requests_.size(); }
    size_t listenerCount() const { return listeners_.size(); }
    size_t initCount() const { return initCount_; }
    std::vector<std::string> notifications() const { return {notes_.begin(), notes_.end()}; }
    // The lines of one table (codes 0-8), as a dump command prints them.
    std::vector<std::string> table(int32_t code) const;

  private:
    struct Setting {
        std::string key;  // canonical resource key, see keyForId/keyForPath
        std::string value;
        TorqRequestData address;  // how the request named it (id or path), for answers
    };
    struct Request {
        int32_t handle = 0;
        int32_t kind = 0;
        int64_t startMs = 0;
        std::optional<int64_t> deadlineMs;
        std::vector<Setting> settings;
        int32_t saId = 0;          // SA control
        int32_t eventId = -1;      // event acquisition
        TorqRequestParcel parcel;  // as received, for the tables (callback dropped)
    };
    struct Watch {
        std::string key;
        TorqRequestData address;
    };
    struct Listener {
        enum class Type { kId, kPath, kThermal };
        int32_t handle = 0;
        Type type = Type::kId;
        std::vector<Watch> watches;       // id and path listeners
        std::vector<int32_t> thermalIds;  // thermal listeners; empty: every thermal id
        int32_t tag = 0;
        std::shared_ptr<ITorqCallback> callback;
    };
    using Snapshot = std::map<std::string, std::optional<std::string>>;

    static std::string keyForId(int32_t id);
    static std::string keyForPath(const std::string& path);
    static std::optional<std::string> defaultFor(const std::string& key);
    static std::string describeKey(const std::string& key);

    std::optional<std::string> effective(const std::string& key) const;
    const Request* winner(const std::string& key) const;
    Snapshot snapshot(const std::vector<const Request*>& requests) const;
    void notifyChanges(const Snapshot& before);
    std::optional<std::string> settingsFrom(const std::vector<TorqRequestData>& data, size_t first,
                                            std::vector<Setting>* out) const;
    int32_t applyResourceRequest(const TorqRequestParcel& parcel);
    int32_t applySaControl(const TorqRequestParcel& parcel);
    int32_t runCommand(const TorqRequestParcel& parcel);
    int32_t applyThermal(const TorqRequestParcel& parcel);
    int32_t recordNotify(const TorqRequestParcel& parcel);
    int32_t registerListener(const TorqRequestParcel& parcel,
                             const std::shared_ptr<ITorqCallback>& callback);
    void answerRequest(const Request& request, const std::shared_ptr<ITorqCallback>& callback);
    void expire(int64_t now);
    void remember(const std::string& text);
    void note(const std::string& text);
    std::string timeText() const;
    std::string describeRequest(const Request& request) const;

    Clock clock_;
    int64_t startMs_ = 0;
    int32_t nextHandle_ = 1;
    size_t initCount_ = 0;
    std::map<int32_t, Request> requests_;  // by handle: higher handle = newer
    std::map<int32_t, Listener> listeners_;
    std::map<int32_t, std::string> thermalLevels_;
    std::map<int32_t, std::pair<int32_t, std::vector<TorqRequestData>>> rules_;
    std::map<int32_t, int64_t> sysInfo_;
    std::map<std::string, std::string> properties_;
    std::deque<std::string> notes_;  // notifications and notifyEvent calls, newest last
    bool historyOn_ = false;
    std::deque<std::string> history_;
    int32_t powerMode_ = 0;
    std::vector<Delivery> deliveries_;
    std::vector<std::string> dumpOutput_;
};

}  // namespace torq_sim
