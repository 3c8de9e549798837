// The torqHalclient front end: one cached ITorq connection shared by every call, the listening
// registry, and the request, state, listening, thermal, path, diagnostic and property calls.

#include "torqHalclient.h"

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/log.h>

#include "../utils/HalCallFrame.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <shared_mutex>
#include <utility>

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

namespace {

constexpr const char* kLogTag = "TORQFramework-lib-vendor";
constexpr const char* kTorqInstance = "vendor.quarn.hardware.torq.ITorq/default";

#define LOGI(...) __android_log_print(ANDROID_LOG_INFO, kLogTag, __VA_ARGS__)
#define LOGE(...) __android_log_print(ANDROID_LOG_ERROR, kLogTag, __VA_ARGS__)

// Request kinds understood by the HAL.
constexpr int32_t kKindResCtl = 1;
constexpr int32_t kKindSACtl = 2;
constexpr int32_t kKindCommand = 5;
constexpr int32_t kKindThermalNotify = 7;

constexpr size_t kPropertyBufferSize = 256;

// One listening registration. Id and thermal registrations fill `ids`, path registrations
// `paths`; the group owns a reference to the client so that the HAL's notices keep reaching it.
struct TorqCallbackGroup {
    std::vector<int32_t> ids;
    std::vector<std::string> paths;
    int32_t handle = -1;
    std::shared_ptr<TorqCallbackClient> client;
};

}  // namespace

// Load-time state. The definition order is the construction order (and the reverse the
// destruction order at unload); keep it.
//
// Locks and who holds them:
//   g_torq_hal_mutex, shared     - every call, from the interface test through its one ITorq call.
//   g_torq_hal_mutex, exclusive  - connect, death and the failure rule; never taken while this
//                                  thread holds it shared (the shared lock is never upgraded).
//   listening_groups_mutex       - the id and path listening registrations take it under the
//                                  shared interface lock and keep it after that is released,
//                                  through the failure rule (so the exclusive interface lock is
//                                  then taken under it); unregistering takes it after the shared
//                                  lock is released, and also keeps it through the failure rule.
//                                  This order is the front end's established behaviour and is
//                                  kept: a failing registration waits for the exclusive lock with
//                                  the registry held, so a registration running meanwhile on
//                                  another thread (shared lock held, waiting for the registry)
//                                  would deadlock with it.
//   request_callback_mutex       - taken under the shared interface lock to add a request client,
//                                  and alone on binder threads (TorqCallbackClient) to remove one.
static std::shared_ptr<ITorq> g_torq_hal;
// Shared for every call that uses g_torq_hal, exclusive only to change it.
static std::shared_timed_mutex g_torq_hal_mutex;
static std::mutex listening_groups_mutex;
static std::vector<TorqCallbackGroup> listening_groups;
std::mutex request_callback_mutex;
std::vector<std::shared_ptr<TorqCallbackClient>> request_callbacks;
// Replaced on every connection and never deleted: a recipient may still be referenced by the
// binder of an earlier connection.
static AIBinder_DeathRecipient* g_death_recipient = nullptr;

namespace {

using HalUniqueLock = std::unique_lock<std::shared_timed_mutex>;

void onTorqHalDied(void* /*cookie*/) {
    HalUniqueLock lock(g_torq_hal_mutex);
    g_torq_hal.reset();
    LOGE("Torq HAL Service died");
}

}  // namespace

static void get_torq_hal_and_link_to_death() {
    {
        halframe::HalSharedLock lock(g_torq_hal_mutex);
        if (g_torq_hal != nullptr) return;
    }
    HalUniqueLock lock(g_torq_hal_mutex);
    // Test again under the exclusive lock: another thread may have connected meanwhile.
    if (g_torq_hal == nullptr && AServiceManager_isDeclared(kTorqInstance)) {
        ndk::SpAIBinder binder(AServiceManager_waitForService(kTorqInstance));
        g_torq_hal = ITorq::fromBinder(binder);
        binder.set(nullptr);
        if (g_torq_hal == nullptr) {
            LOGE("Torq HAL Service not found");
            return;
        }
        g_death_recipient = AIBinder_DeathRecipient_new(onTorqHalDied);
        binder_status_t linked = AIBinder_linkToDeath(g_torq_hal->asBinder().get(),
                                                      g_death_recipient, g_torq_hal.get());
        if (linked != STATUS_OK) {
            // Never use an interface whose death would go unnoticed.
            g_torq_hal.reset();
            LOGE("Unable to link to g_torq_hal death notifications!");
        }
    } else {
        LOGE("Torq is not declared, AServiceManager_isDeclared:%d",
             AServiceManager_isDeclared(kTorqInstance));
    }
}

namespace {

// This front end's side of the call frame (utils/HalCallFrame.h).
struct TorqFront {
    static constexpr const char* kLogTag = ::kLogTag;
    static constexpr const char* kCallFailedFormat = "%s() failed: torq HAL service not available";

    static std::shared_timed_mutex& mutex() { return g_torq_hal_mutex; }
    // The interface stays valid while the shared lock is held: only exclusive holders replace it.
    static ITorq* cachedHal() { return g_torq_hal.get(); }
    // The connect step logs its own failures and reports none: the interface test under the
    // lock decides.
    static bool connectHal() {
        get_torq_hal_and_link_to_death();
        return true;
    }
    // After a failed transaction the connection is not trusted any more.
    static void dropHal() {
        HalUniqueLock lock(g_torq_hal_mutex);
        g_torq_hal.reset();
    }
};

using Frame = halframe::HalFrame<TorqFront>;
using halframe::HalCall;
using halframe::MaybeStatus;

std::vector<TorqRequestData> toRequestData(const std::list<ZelClient::Resource>& resources) {
    std::vector<TorqRequestData> data(resources.size());
    auto out = data.begin();
    for (const ZelClient::Resource& res : resources) {
        out->id = res.id;
        // The value is always sent, empty when the caller gave none. Copied straight into
        // place: going through a temporary would copy a long value twice.
        if (res.value.has_value()) {
            out->value.emplace(*res.value);
        } else {
            out->value.emplace();
        }
        ++out;
    }
    return data;
}

std::vector<TorqRequestData> toPathData(const std::vector<std::string>& paths,
                                        const std::vector<std::string>* values) {
    std::vector<TorqRequestData> data(paths.size());
    for (size_t i = 0; i < paths.size(); ++i) {
        data[i].path = paths[i];
        if (values != nullptr) data[i].value = (*values)[i];
    }
    return data;
}

void addRequestCallback(const std::shared_ptr<TorqCallbackClient>& client, const char* addLine) {
    std::lock_guard<std::mutex> guard(request_callback_mutex);
    LOGI("%s", addLine);
    request_callbacks.push_back(client);
}

}  // namespace

namespace torqHalclient {

// Id and value come in pairs: a non-zero id needs a non-empty value, id 0 carries none.
bool checkResourceList(std::list<ZelClient::Resource>& resources) {
    for (const ZelClient::Resource& res : resources) {
        bool hasValue = res.value.has_value() && !res.value->empty();
        if (res.id != 0 ? !hasValue : hasValue) return false;
    }
    return true;
}

}  // namespace torqHalclient

namespace {

int32_t resCtlRequest(int32_t param, int32_t duration, std::list<ZelClient::Resource>& resources,
                      int32_t option, int32_t level, int32_t tag,
                      const std::shared_ptr<IClientCallback>* callback) {
    LOGI(callback ? "torq client torqResCtlRequest with callback" : "torq client torqResCtlRequest");
    int32_t handle = -1;
    Frame::callHal(
            callback ? "torq client TorqCallbackClient with callback" : "torqResCtlRequest",
            [&](ITorq& hal) -> MaybeStatus {
                TorqRequestParcel parcel;
                parcel.flag = level >= 1;
                // Checked only once connected, as it always was.
                if (!torqHalclient::checkResourceList(resources)) {
                    LOGE(callback ? "torq client torq_resctl_request ERROR: size unmatched for id "
                                    "and value "
                                  : "torqResCtlRequest ERROR: size unmatched for id and value ");
                    return std::nullopt;
                }
                parcel.kind = kKindResCtl;
                parcel.option = option;
                parcel.tag = tag;
                parcel.param = param;
                parcel.duration = duration;
                if (callback != nullptr) {
                    LOGI("new std::shared_ptr TorqCallbackClient callback");
                    auto client =
                            ndk::SharedRefBase::make<TorqCallbackClient>(*callback, false, false);
                    addRequestCallback(client,
                                       "torq client torqResCtlRequest add to request_callbacks");
                    parcel.callback = std::move(client);
                }
                parcel.data = toRequestData(resources);
                return hal.request(parcel, &handle);
            });
    return handle;
}

int32_t saCtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option, int32_t level,
                     int32_t tag, const std::shared_ptr<IClientCallback>* callback) {
    LOGI(callback ? "torq client torqSACtlRequest with callback" : "torq client torqSACtlRequest");
    int32_t handle = -1;
    Frame::callHal(callback ? "torqSACtlRequest with callback" : "torqSACtlRequest", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.flag = level >= 1;
        parcel.kind = kKindSACtl;
        parcel.option = option;
        parcel.tag = tag;
        parcel.param = param;
        parcel.duration = duration;
        if (callback != nullptr) {
            LOGI("new std::shared_ptr TorqCallbackClient callback");
            auto client = ndk::SharedRefBase::make<TorqCallbackClient>(*callback, false, false);
            addRequestCallback(client, "torq client torqSACtlRequest add to request_callbacks");
            parcel.callback = std::move(client);
        }
        parcel.data.resize(1);
        parcel.data[0].id = id;
        return hal.request(parcel, &handle);
    });
    return handle;
}

int32_t release(int32_t handle, const char* entryLine, const char* step) {
    LOGI("%s", entryLine);
    int32_t result = -1;
    Frame::callHal(step, [&](ITorq& hal) { return hal.release(handle, &result); });
    return result;
}

// Dump and history commands: a kind-5 request whose single entry carries the command code.
int32_t sendCommand(int32_t code, const char* entryLine, const char* step) {
    LOGI("%s", entryLine);
    int32_t handle = -1;
    Frame::callHal(step, [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.kind = kKindCommand;
        parcel.option = 1;
        parcel.data.resize(1);
        parcel.data[0].id = code;
        return hal.request(parcel, &handle);
    });
    return handle >= 1 ? 0 : -1;
}

bool sameIds(const std::vector<int32_t>& ids) {
    for (const TorqCallbackGroup& group : listening_groups) {
        if (group.ids == ids) return true;
    }
    return false;
}

bool samePaths(const std::vector<std::string>& paths) {
    for (const TorqCallbackGroup& group : listening_groups) {
        if (group.paths == paths) return true;
    }
    return false;
}

// The path listening registrations. `fillData(parcel)` fills the parcel's entries and returns the
// group's path list. The registry is locked under the interface lock, from the duplicate test
// until the new group is in, and stays locked through the failure rule.
template <typename FillData>
int32_t listeningRegisterByPath(int32_t tag, const std::shared_ptr<IClientCallbackByPath>& callback,
                                const char* step, FillData fillData) {
    int32_t handle = -1;
    std::unique_lock<std::mutex> groups(listening_groups_mutex, std::defer_lock);
    std::vector<std::string> paths;
    std::shared_ptr<TorqCallbackClient> client;
    HalCall made = Frame::callHal(step, [&](ITorq& hal) -> MaybeStatus {
        TorqRequestParcel parcel;
        torqHalclient::torq_add_zdbdebug_for_request_parcel(parcel);
        parcel.tag = tag;
        paths = fillData(parcel);
        groups.lock();
        if (samePaths(paths)) {
            LOGE("Same callback interface registered already");
            return std::nullopt;
        }
        client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, true);
        return hal.listeningRegister(parcel, client, &handle);
    });
    if (made == HalCall::kOk) {
        listening_groups.push_back({{}, std::move(paths), handle, std::move(client)});
        LOGI("A callback has been registered to Torq HAL ");
    }
    return handle;
}

}  // namespace

namespace torqHalclient {

void torq_init() {
    LOGI("torq client torq_init");
    Frame::callHal("torq_init", [](ITorq& hal) { return hal.init(); });
}

// ---- Resource and SA control ---------------------------------------------------------------

int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources, int32_t tag) {
    return torqResCtlRequest(-1, duration, resources, -1, -1, tag);
}

int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources,
                          int32_t level, int32_t tag) {
    return torqResCtlRequest(-1, duration, resources, -1, level, tag);
}

int32_t torqResCtlRequest(int32_t duration, std::list<ZelClient::Resource>& resources,
                          int32_t option, int32_t level, int32_t tag) {
    return torqResCtlRequest(-1, duration, resources, option, level, tag);
}

int32_t torqResCtlRequest(int32_t param, int32_t duration,
                          std::list<ZelClient::Resource>& resources, int32_t tag) {
    return torqResCtlRequest(param, duration, resources, -1, -1, tag);
}

int32_t torqResCtlRequest(int32_t param, int32_t duration,
                          std::list<ZelClient::Resource>& resources, int32_t level, int32_t tag) {
    return torqResCtlRequest(param, duration, resources, -1, level, tag);
}

int32_t torqResCtlRequest(int32_t param, int32_t duration, std::list<ZelClient::Resource>& resources,
                          int32_t option, int32_t level, int32_t tag) {
    return resCtlRequest(param, duration, resources, option, level, tag, nullptr);
}

int32_t torqResCtlRequest(int32_t param, int32_t duration,
                          std::list<ZelClient::Resource>& resources, int32_t option, int32_t level,
                          int32_t tag, const std::shared_ptr<IClientCallback>& callback) {
    return resCtlRequest(param, duration, resources, option, level, tag, &callback);
}

int32_t torqSACtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option, int32_t level,
                         int32_t tag) {
    return saCtlRequest(param, duration, id, option, level, tag, nullptr);
}

int32_t torqSACtlRequest(int32_t duration, int32_t id, int32_t tag) {
    return torqSACtlRequest(-1, duration, id, -1, -1, tag);
}

int32_t torqSACtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option, int32_t level,
                         int32_t tag, const std::shared_ptr<IClientCallback>& callback) {
    return saCtlRequest(param, duration, id, option, level, tag, &callback);
}

int32_t torqResCtlRelease(int32_t handle) {
    return release(handle, "torq client torqResCtlRelease", "torqResCtlRelease");
}

int32_t torqSACtlRelease(int32_t handle) {
    return release(handle, "torq client torqSACtlRelease", "torqSACtlRelease");
}

// ---- Listening, state and thermal by id ----------------------------------------------------

int32_t torqResListeningRegister(std::list<ZelClient::Resource>& resources, int32_t tag,
                                 const std::shared_ptr<IClientCallback>& callback) {
    LOGI("torqResListeningRegister");
    int32_t handle = -1;
    // Locked under the interface lock, from the duplicate test until the new group is in, and
    // through the failure rule.
    std::unique_lock<std::mutex> groups(listening_groups_mutex, std::defer_lock);
    std::vector<int32_t> ids;
    std::shared_ptr<TorqCallbackClient> client;
    // Reported under the map registration's name; tools grep for it.
    HalCall made = Frame::callHal("torq_res_listening_register_map", [&](ITorq& hal) -> MaybeStatus {
        TorqRequestParcel parcel;
        parcel.data = toRequestData(resources);
        parcel.tag = tag;
        ids.reserve(resources.size());
        for (const ZelClient::Resource& res : resources) ids.push_back(res.id);

        groups.lock();
        if (sameIds(ids)) {
            LOGE("Same callback interface registered already");
            return std::nullopt;
        }
        client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, false);
        return hal.listeningRegister(parcel, client, &handle);
    });
    if (made == HalCall::kOk) {
        listening_groups.push_back({std::move(ids), {}, handle, std::move(client)});
        LOGI("A callback has been registered to Torq HAL ");
    }
    return handle;
}

int32_t torqResListeningUnRegister(int32_t handle) {
    LOGI("torq client torqResListeningUnRegister");
    int32_t result = -1;
    std::unique_lock<std::mutex> groups(listening_groups_mutex, std::defer_lock);
    // The local registration goes whatever the HAL said (the caller is done with it): it is
    // removed between the lock release and the failure rule, which runs with the registry locked.
    auto removeGroup = [&] {
        groups.lock();
        auto kept = listening_groups.begin();
        bool found = false;
        for (auto it = listening_groups.begin(); it != listening_groups.end(); ++it) {
            if (it->handle == handle) {
                found = true;
                LOGI("a callback has been unregistered to Torq HAL handle %d", handle);
                continue;
            }
            if (kept != it) *kept = std::move(*it);
            ++kept;
        }
        listening_groups.erase(kept, listening_groups.end());
        if (!found) LOGE("The callback was not registered before");
    };
    Frame::callHal(
            "torqResListeningUnRegister",
            [&](ITorq& hal) { return hal.listeningUnregister(handle, &result); }, nullptr,
            halframe::Proceed(), removeGroup);
    return result;
}

int32_t torqResStateRequest(std::list<ZelClient::Resource>& resources, int32_t tag,
                            std::list<ZelClient::Resource>& output) {
    LOGI("torq client torqResStateRequest");
    std::vector<TorqRequestData> records;
    HalCall made = Frame::callHal("torqResStateRequest", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.data = toRequestData(resources);
        parcel.tag = tag;
        LOGI("torq client hal torqResStateRequest");
        return hal.stateRequest(parcel, &records);
    });
    if (made != HalCall::kOk || records.empty()) return -1;

    for (TorqRequestData& record : records) {
        output.push_back(
                {record.id, record.value.has_value() ? std::move(*record.value) : std::string()});
    }
    int32_t size = static_cast<int32_t>(output.size());
    LOGI("torq client torqResStateRequest size %d", size);
    return size;
}

int32_t torqThermalNotify(std::list<ZelClient::Resource>& levels, int32_t tag) {
    LOGI("torq client torqThermalNotify");
    int32_t handle = -1;
    Frame::callHal("torqThermalNotify", [&](ITorq& hal) -> MaybeStatus {
        if (!checkResourceList(levels)) {
            LOGE("torqThermalNotify ERROR: size unmatched for id and level ");
            return std::nullopt;
        }
        TorqRequestParcel parcel;
        parcel.kind = kKindThermalNotify;
        parcel.data = toRequestData(levels);
        parcel.tag = tag;
        return hal.request(parcel, &handle);
    });
    return handle >= 1 ? 0 : -1;
}

int32_t torqThermalListeningRegister(const std::vector<int32_t>& ids,
                                     const std::shared_ptr<IClientCallback>& callback) {
    LOGI("torqThermalListeningRegister");
    int32_t handle = -1;
    std::shared_ptr<TorqCallbackClient> client;
    HalCall made = Frame::callHal("torqThermalListeningRegister", [&](ITorq& hal) {
        client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, false);
        return hal.thermalListeningRegister(ids, client, &handle);
    });
    if (made == HalCall::kOk) {
        // Thermal subsystems may be watched more than once; callers register them from one
        // thread, so the registry is not locked here.
        listening_groups.push_back({ids, {}, handle, std::move(client)});
        LOGI("subsys's callback has been registered to Torq HAL");
    }
    return handle;
}

int32_t torqThermalListeningUnregister(int32_t handle) {
    LOGI("torq client torqThermalListeningUnregister");
    int32_t result = -1;
    HalCall made = Frame::callHal("torqThermalListeningUnregister", [&](ITorq& hal) {
        return hal.thermalListeningUnregister(handle, &result);
    });
    // The registration itself stays: torqResListeningUnRegister removes it by handle.
    if (made == HalCall::kOk) LOGI("subsys's callback has been unRegistered to Torq HAL");
    return result;
}

// ---- Path-addressed calls ------------------------------------------------------------------

int32_t torq_resctl_request_by_path(int32_t a, int64_t b, const std::vector<std::string>& paths,
                                    const std::vector<std::string>& values, int32_t c, int32_t d,
                                    int32_t e) {
    LOGI("torq client torq_resctl_request");
    int32_t handle = -1;
    Frame::callHal("torq_resctl_request_by_path", [&](ITorq& hal) -> MaybeStatus {
        TorqRequestParcel parcel;
        torq_add_zdbdebug_for_request_parcel(parcel);
        parcel.flag = d >= 1;
        if (paths.size() != values.size()) {
            LOGE("torq_resctl_request ERROR: size unmatched for paths and value ");
            return std::nullopt;
        }
        parcel.option = c;
        parcel.tag = e;
        parcel.duration = b;
        parcel.param = a;
        parcel.kind = kKindResCtl;
        parcel.data = toPathData(paths, &values);
        return hal.request(parcel, &handle);
    });
    return handle;
}

int32_t torq_resctl_request_with_callback_by_path(
        int32_t a, int64_t b, const std::vector<std::string>& paths,
        const std::vector<std::string>& values, int32_t c, int32_t d, int32_t e,
        const std::shared_ptr<IClientCallbackByPath>& callback) {
    LOGI("torq client torq_resctl_request_with_callback");
    int32_t handle = -1;
    Frame::callHal("torq client torq_resctl_request_with_callback", [&](ITorq& hal) -> MaybeStatus {
        TorqRequestParcel parcel;
        torq_add_zdbdebug_for_request_parcel(parcel);
        parcel.flag = d >= 1;
        if (paths.size() != values.size()) {
            LOGE("torq client torq_resctl_request ERROR: size unmatched for id and value ");
            return std::nullopt;
        }
        parcel.option = c;
        parcel.tag = e;
        parcel.duration = b;
        parcel.param = a;
        parcel.kind = kKindResCtl;
        LOGI("new std::shared_ptr TorqCallbackClient callback");
        auto client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, false, true);
        addRequestCallback(
                client, "torq client torq_resctl_request_with_callback add to request_callbacks");
        parcel.callback = std::move(client);
        parcel.data = toPathData(paths, &values);
        return hal.request(parcel, &handle);
    });
    return handle;
}

int32_t torq_res_state_request_by_path(const std::vector<std::string>& paths,
                                       const std::vector<std::string>& values, int32_t tag,
                                       std::vector<std::string>& output) {
    LOGI("torq client torq_res_state_request");
    std::vector<TorqRequestData> records;
    HalCall made = Frame::callHal("torq_res_state_request", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        torq_add_zdbdebug_for_request_parcel(parcel);
        parcel.tag = tag;
        // Values are optional in a state query; without a matching set only the paths are asked.
        bool withValues = !values.empty() && values.size() == paths.size();
        parcel.data = toPathData(paths, withValues ? &values : nullptr);
        return hal.stateRequest(parcel, &records);
    });
    if (made != HalCall::kOk || records.empty()) return -1;

    for (TorqRequestData& record : records) {
        output.push_back(record.value.has_value() ? std::move(*record.value) : std::string());
    }
    int32_t size = static_cast<int32_t>(output.size());
    LOGI("torq client torq_res_state_request size %d", size);
    return size;
}

int32_t torq_res_state_request_map_by_path(const std::map<std::string, std::string>& paths,
                                           int32_t tag, std::map<std::string, std::string>& output) {
    LOGI("torq client torq_res_state_request_map");
    std::vector<TorqRequestData> records;
    HalCall made = Frame::callHal("torq_res_state_request_map", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        torq_add_zdbdebug_for_request_parcel(parcel);
        parcel.tag = tag;
        parcel.data.resize(paths.size());
        auto entry = parcel.data.begin();
        for (const auto& [path, value] : paths) {
            entry->path = path;
            entry->value = value;
            ++entry;
        }
        return hal.stateRequest(parcel, &records);
    });
    if (made != HalCall::kOk || records.empty()) return -1;

    for (const TorqRequestData& record : records) {
        if (!record.value.has_value() || !record.path.has_value()) continue;
        output[*record.path] = *record.value;
        LOGE("res_Path: %s, res_Value:%s", record.path->c_str(), record.value->c_str());
    }
    int32_t size = static_cast<int32_t>(output.size());
    LOGI("torq client torq_res_state_request_map size %d", size);
    return size;
}

int32_t torq_res_listening_register_by_path(const std::vector<std::string>& paths, int32_t tag,
                                            const std::shared_ptr<IClientCallbackByPath>& callback) {
    LOGI("torq client torq_res_listening_register");
    return listeningRegisterByPath(tag, callback, "torq_res_listening_register",
                                   [&](TorqRequestParcel& parcel) {
                                       parcel.data = toPathData(paths, nullptr);
                                       return paths;
                                   });
}

int32_t torq_res_listening_register_map_by_path(
        const std::map<std::string, std::string>& paths, int32_t tag,
        const std::shared_ptr<IClientCallbackByPath>& callback) {
    LOGI("torq client torq_res_listening_register_map");
    return listeningRegisterByPath(tag, callback, "torq_res_listening_register_map",
                                   [&](TorqRequestParcel& parcel) {
                                       std::vector<std::string> keys;
                                       keys.reserve(paths.size());
                                       parcel.data.resize(paths.size());
                                       auto entry = parcel.data.begin();
                                       for (const auto& [path, value] : paths) {
                                           entry->path = path;
                                           entry->value = value;
                                           keys.push_back(path);
                                           ++entry;
                                       }
                                       return keys;
                                   });
}

// ---- Diagnostics, history and properties ---------------------------------------------------

int32_t torqDumpToDoQueue() {
    return sendCommand(0, "torq client torqDumpToDoQueue", "torqDumpToDoQueue");
}

int32_t torqDumpRunMap() {
    return sendCommand(1, "torq client torqDumpRunMap", "torqDumpRunMap");
}

int32_t torqDumpActiveResMap() {
    return sendCommand(2, "torq client torqDumpActiveResMap", "torqDumpActiveResMap");
}

int32_t torqDumpResRequest() {
    return sendCommand(3, "torq client torqDumpResRequest", "torqDumpResRequest");
}

int32_t torqDumpResInfo() {
    return sendCommand(4, "torq client torqDumpResInfo", "torqDumpResInfo");
}

int32_t torqDumpSAInfo() {
    return sendCommand(5, "torq client torqDumpSAInfo", "torqDumpSAInfo");
}

int32_t torqDumpPidFdList() {
    return sendCommand(6, "torq client torqDumpPidFdList", "torqDumpPidFdList");
}

int32_t torqDumpPidfdMonitorMap() {
    return sendCommand(7, "torq client torqDumpPidfdMonitorMap", "torqDumpPidfdMonitorMap");
}

int32_t torqDumpResRecordList() {
    return sendCommand(8, "torq client torqDumpResRecordList", "torqDumpResRecordList");
}

// Code 9 is not a command.
int32_t torqHistoryRequestRecordOn() {
    return sendCommand(10, "torq client torqHistoryRequestRecordOn", "torqHistoryRequestRecordOn");
}

int32_t torqHistoryRequestRecordOff() {
    return sendCommand(11, "torq client torqHistoryRequestRecordOff", "torqHistoryRequestRecordOff");
}

char* torqPropertyGet(const std::string& name) {
    LOGI("torq client torqPropertyGet");
    char* buffer = new char[kPropertyBufferSize];
    Frame::callHal("torqPropertyGet", [&](ITorq& hal) {
        std::string text;
        ndk::ScopedAStatus status = hal.propertyGet(name, &text);
        // A value that does not fit must not be handed back cut short.
        size_t length = strlen(text.c_str());
        if (length >= kPropertyBufferSize) abort();
        memcpy(buffer, text.c_str(), length + 1);
        return status;
    });
    // Bounded: without a HAL the buffer was never written.
    LOGI("torqPropertyGet %.*s ", static_cast<int>(kPropertyBufferSize), buffer);
    return buffer;
}

int32_t torqPropertySet(const std::string& name, const std::string& value) {
    LOGI("torq client torqPropertySet");
    int32_t result = -1;
    Frame::callHal("torqPropertySet",
                   [&](ITorq& hal) { return hal.propertySet(name, value, &result); });
    return result;
}

void torq_add_zdbdebug_for_request_parcel(TorqRequestParcel& parcel) {
    std::vector<std::optional<std::string>> marker{std::optional<std::string>("zdbdebug")};
    if (parcel.extras.has_value()) {
        *parcel.extras = std::move(marker);
    } else {
        parcel.extras = std::move(marker);
    }
}

}  // namespace torqHalclient
