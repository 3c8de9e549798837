#pragma once

// The torqHalclient API: resource control, listening, state, thermal, path-addressed, diagnostic
// and property calls to the Torq HAL over one shared, lazily made and self-healing connection.
//
// Every call runs on the caller's thread and returns when the HAL has answered. Int-returning
// calls give -1 on any failure (HAL not reachable, bad arguments, failed transaction). A failed
// transaction drops the cached connection, so the next call connects again. Answers that come
// later (request callbacks, listening notifications) arrive on binder threads of this process.

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ZelClient.h"
#include "ZelExport.h"

// Receives the answer to an id-addressed request, or the changes of an id-addressed listening
// registration. Called on a binder thread; the list is the caller's own copy.
class ZEL_EXPORT IClientCallback {
  public:
    virtual void onCallback(std::list<ZelClient::Resource> resources) = 0;
    virtual ~IClientCallback() = default;
};

// Receives path-addressed results: values[i] belongs to paths[i]. Called on a binder thread.
class ZEL_EXPORT IClientCallbackByPath {
  public:
    virtual void onCallback(std::vector<std::string> values, std::vector<std::string> paths) = 0;
    virtual ~IClientCallbackByPath() = default;
};

// The binder object handed to the HAL with a request or a listening registration; forwards the
// HAL's records to the caller's callback. Request clients (is_register false) leave
// request_callbacks once their answer has arrived; listening clients stay until unregistered.
class ZEL_EXPORT TorqCallbackClient : public ::aidl::vendor::quarn::hardware::torq::BnTorqCallback {
  public:
    TorqCallbackClient(const std::shared_ptr<IClientCallback>& callback, bool is_register,
                       bool by_path);
    TorqCallbackClient(const std::shared_ptr<IClientCallbackByPath>& callback, bool is_register,
                       bool by_path);
    ~TorqCallbackClient() override;

    ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& data) override;

  private:
    std::shared_ptr<IClientCallback> mCallback;
    std::shared_ptr<IClientCallbackByPath> mPathCallback;
    bool is_register;
    bool by_path;
};

// Request clients waiting for their one answer, guarded by request_callback_mutex.
ZEL_EXPORT extern std::mutex request_callback_mutex;
ZEL_EXPORT extern std::vector<std::shared_ptr<TorqCallbackClient>> request_callbacks;

namespace torqHalclient {

// Connects now (instead of on the first call) and calls ITorq::init().
ZEL_EXPORT void torq_init();

// Resource control by opcode. `level` >= 1 sets the request's flag; omitted arguments are -1.
// Each resource with a non-zero id needs a non-empty value, id 0 needs none. Returns the HAL's
// handle, or -1.
ZEL_EXPORT int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources,
                                     int32_t tag);
ZEL_EXPORT int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources,
                                     int32_t level, int32_t tag);
ZEL_EXPORT int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources,
                                     int32_t option, int32_t level, int32_t tag);
ZEL_EXPORT int32_t torqResCtlRequest(int32_t param, int32_t duration,
                                     std::list<ZelClient::Resource>& resources, int32_t tag);
ZEL_EXPORT int32_t torqResCtlRequest(int32_t param, int32_t duration,
                                     std::list<ZelClient::Resource>& resources, int32_t level,
                                     int32_t tag);
ZEL_EXPORT int32_t torqResCtlRequest(int32_t param, int32_t duration,
                                     std::list<ZelClient::Resource>& resources, int32_t option,
                                     int32_t level, int32_t tag);
// As above; the HAL answers once through `callback`.
ZEL_EXPORT int32_t torqResCtlRequest(int32_t param, int32_t duration,
                                     std::list<ZelClient::Resource>& resources, int32_t option,
                                     int32_t level, int32_t tag,
                                     const std::shared_ptr<IClientCallback>& callback);

// SA control: one id, no value.
ZEL_EXPORT int32_t torqSACtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option,
                                    int32_t level, int32_t tag);
ZEL_EXPORT int32_t torqSACtlRequest(int32_t duration, int32_t id, int32_t tag);
ZEL_EXPORT int32_t torqSACtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option,
                                    int32_t level, int32_t tag,
                                    const std::shared_ptr<IClientCallback>& callback);

// Release by handle; the HAL's result, or -1.
ZEL_EXPORT int32_t torqResCtlRelease(int32_t handle);
ZEL_EXPORT int32_t torqSACtlRelease(int32_t handle);

// Listening by opcode. The same id list (same ids, same order) cannot be registered twice.
ZEL_EXPORT int32_t torqResListeningRegister(std::list<ZelClient::Resource>& resources, int32_t tag,
                                            const std::shared_ptr<IClientCallback>& callback);
// Removes every registration (id, path or thermal) with this handle.
ZEL_EXPORT int32_t torqResListeningUnRegister(int32_t handle);

// Appends the HAL's current values to `output`; returns output's size, or -1.
ZEL_EXPORT int32_t torqResStateRequest(std::list<ZelClient::Resource>& resources, int32_t tag,
                                       std::list<ZelClient::Resource>& output);

// Thermal levels (id = thermal id, value = level). 0 when the HAL accepted, else -1.
ZEL_EXPORT int32_t torqThermalNotify(std::list<ZelClient::Resource>& levels, int32_t tag);
ZEL_EXPORT int32_t torqThermalListeningRegister(const std::vector<int32_t>& ids,
                                                const std::shared_ptr<IClientCallback>& callback);
ZEL_EXPORT int32_t torqThermalListeningUnregister(int32_t handle);

// Path-addressed calls. For the control forms: a -> param, b -> duration, c -> option,
// d >= 1 -> flag, e -> tag. paths and values must have the same length.
ZEL_EXPORT int32_t torq_resctl_request_by_path(int32_t a, int64_t b,
                                               const std::vector<std::string>& paths,
                                               const std::vector<std::string>& values, int32_t c,
                                               int32_t d, int32_t e);
ZEL_EXPORT int32_t torq_resctl_request_with_callback_by_path(
        int32_t a, int64_t b, const std::vector<std::string>& paths,
        const std::vector<std::string>& values, int32_t c, int32_t d, int32_t e,
        const std::shared_ptr<IClientCallbackByPath>& callback);
// Appends the values in the HAL's order; returns output's size, or -1.
ZEL_EXPORT int32_t torq_res_state_request_by_path(const std::vector<std::string>& paths,
                                                  const std::vector<std::string>& values,
                                                  int32_t tag, std::vector<std::string>& output);
// Fills output[path] = value; returns output's size, or -1.
ZEL_EXPORT int32_t torq_res_state_request_map_by_path(const std::map<std::string, std::string>& paths,
                                                      int32_t tag,
                                                      std::map<std::string, std::string>& output);
ZEL_EXPORT int32_t
torq_res_listening_register_by_path(const std::vector<std::string>& paths, int32_t tag,
                                    const std::shared_ptr<IClientCallbackByPath>& callback);
ZEL_EXPORT int32_t torq_res_listening_register_map_by_path(
        const std::map<std::string, std::string>& paths, int32_t tag,
        const std::shared_ptr<IClientCallbackByPath>& callback);

// Diagnostics: ask the HAL to dump a table to its own log. 0 when accepted, else -1.
ZEL_EXPORT int32_t torqDumpToDoQueue();
ZEL_EXPORT int32_t torqDumpRunMap();
ZEL_EXPORT int32_t torqDumpActiveResMap();
ZEL_EXPORT int32_t torqDumpResRequest();
ZEL_EXPORT int32_t torqDumpResInfo();
ZEL_EXPORT int32_t torqDumpSAInfo();
ZEL_EXPORT int32_t torqDumpPidFdList();
ZEL_EXPORT int32_t torqDumpPidfdMonitorMap();
ZEL_EXPORT int32_t torqDumpResRecordList();
ZEL_EXPORT int32_t torqHistoryRequestRecordOn();
ZEL_EXPORT int32_t torqHistoryRequestRecordOff();

// Returns a new char[256] the caller frees with delete[]. It holds the HAL's value (empty when
// the call failed); without a HAL it is left unwritten. A value of 256 characters or more
// aborts the process.
ZEL_EXPORT char* torqPropertyGet(const std::string& name);
ZEL_EXPORT int32_t torqPropertySet(const std::string& name, const std::string& value);

// Replaces the parcel's extras with the single debug marker "zdbdebug".
ZEL_EXPORT void torq_add_zdbdebug_for_request_parcel(
        ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& parcel);

}  // namespace torqHalclient
