// The torqHalclient front end: one cached ITorq connection shared by every call, the listening
// registry, and the request, state, listening, thermal, path, diagnostic and property calls.

#include "torqHalclient.h"

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/log.h>

#include <cstdlib>
#include <cstring>
#include <shared_mutex>
#include <utility>

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

namespace {

constexpr const char* kTag = "TORQFramework-lib-vendor";
constexpr const char* kTorqInstance = "vendor.quarn.hardware.torq.ITorq/default";

#define TORQ_LOGI(...) __android_log_print(ANDROID_LOG_INFO, kTag, __VA_ARGS__)
#define TORQ_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, kTag, __VA_ARGS__)

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

using HalSharedLock = std::shared_lock<std::shared_timed_mutex>;
using HalUniqueLock = std::unique_lock<std::shared_timed_mutex>;

void onTorqHalDied(void* /*cookie*/) {
    HalUniqueLock lock(g_torq_hal_mutex);
    g_torq_hal.reset();
    TORQ_LOGE("Torq HAL Service died");
}

}  // namespace

static void get_torq_hal_and_link_to_death() {
    {
        HalSharedLock lock(g_torq_hal_mutex);
        if (g_torq_hal != nullptr) return;
    }
    HalUniqueLock lock(g_torq_hal_mutex);
    // Test again under the exclusive lock: another thread may have connected meanwhile.
    if (g_torq_hal == nullptr && AServiceManager_isDeclared(kTorqInstance)) {
        ndk::SpAIBinder binder(AServiceManager_waitForService(kTorqInstance));
        g_torq_hal = ITorq::fromBinder(binder);
        binder.set(nullptr);
        if (g_torq_hal == nullptr) {
            TORQ_LOGE("Torq HAL Service not found");
            return;
        }
        g_death_recipient = AIBinder_DeathRecipient_new(onTorqHalDied);
        binder_status_t linked = AIBinder_linkToDeath(g_torq_hal->asBinder().get(),
                                                      g_death_recipient, g_torq_hal.get());
        if (linked != STATUS_OK) {
            // Never use an interface whose death would go unnoticed.
            g_torq_hal.reset();
            TORQ_LOGE("Unable to link to g_torq_hal death notifications!");
        }
    } else {
        TORQ_LOGE("Torq is not declared, AServiceManager_isDeclared:%d",
                  AServiceManager_isDeclared(kTorqInstance));
    }
}

namespace {

// Takes the HAL lock shared and returns the connected interface, connecting first if there is
// none. Returns null with the lock released when the HAL cannot be reached. The interface
// stays valid while the shared lock is held: only exclusive holders replace g_torq_hal.
ITorq* lockHal(HalSharedLock& lock) {
    lock.lock();
    if (g_torq_hal != nullptr) return g_torq_hal.get();
    lock.unlock();
    get_torq_hal_and_link_to_death();
    lock.lock();
    if (g_torq_hal != nullptr) return g_torq_hal.get();
    lock.unlock();
    return nullptr;
}

// After a failed transaction the connection is not trusted any more: drop it so that the next
// call connects again. Must be called without the shared lock. Returns whether the call was OK.
bool checkHalStatus(const ndk::ScopedAStatus& status, const char* step) {
    if (status.isOk()) return true;
    TORQ_LOGE("%s() failed: torq HAL service not available", step);
    HalUniqueLock lock(g_torq_hal_mutex);
    g_torq_hal.reset();
    return false;
}

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
    TORQ_LOGI("%s", addLine);
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
    TORQ_LOGI(callback ? "torq client torqResCtlRequest with callback"
                       : "torq client torqResCtlRequest");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    parcel.flag = level >= 1;
    if (!torqHalclient::checkResourceList(resources)) {
        TORQ_LOGE(callback ? "torq client torq_resctl_request ERROR: size unmatched for id and "
                             "value "
                           : "torqResCtlRequest ERROR: size unmatched for id and value ");
        return -1;
    }
    parcel.kind = kKindResCtl;
    parcel.option = option;
    parcel.tag = tag;
    parcel.param = param;
    parcel.duration = duration;
    if (callback != nullptr) {
        TORQ_LOGI("new std::shared_ptr TorqCallbackClient callback");
        auto client = ndk::SharedRefBase::make<TorqCallbackClient>(*callback, false, false);
        addRequestCallback(client, "torq client torqResCtlRequest add to request_callbacks");
        parcel.callback = std::move(client);
    }
    parcel.data = toRequestData(resources);
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status,
                   callback ? "torq client TorqCallbackClient with callback" : "torqResCtlRequest");
    return handle;
}

int32_t saCtlRequest(int32_t param, int32_t duration, int32_t id, int32_t option, int32_t level,
                     int32_t tag, const std::shared_ptr<IClientCallback>* callback) {
    TORQ_LOGI(callback ? "torq client torqSACtlRequest with callback"
                       : "torq client torqSACtlRequest");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    parcel.flag = level >= 1;
    parcel.kind = kKindSACtl;
    parcel.option = option;
    parcel.tag = tag;
    parcel.param = param;
    parcel.duration = duration;
    if (callback != nullptr) {
        TORQ_LOGI("new std::shared_ptr TorqCallbackClient callback");
        auto client = ndk::SharedRefBase::make<TorqCallbackClient>(*callback, false, false);
        addRequestCallback(client, "torq client torqSACtlRequest add to request_callbacks");
        parcel.callback = std::move(client);
    }
    parcel.data.resize(1);
    parcel.data[0].id = id;
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status, callback ? "torqSACtlRequest with callback" : "torqSACtlRequest");
    return handle;
}

int32_t release(int32_t handle, const char* entryLine, const char* step) {
    TORQ_LOGI("%s", entryLine);
    int32_t result = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    ndk::ScopedAStatus status = hal->release(handle, &result);
    lock.unlock();
    checkHalStatus(status, step);
    return result;
}

// Dump and history commands: a kind-5 request whose single entry carries the command code.
int32_t sendCommand(int32_t code, const char* entryLine, const char* step) {
    TORQ_LOGI("%s", entryLine);
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    TorqRequestParcel parcel;
    parcel.kind = kKindCommand;
    parcel.option = 1;
    parcel.data.resize(1);
    parcel.data[0].id = code;
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status, step);
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

// The path listening registrations; `paths` becomes the group's path list.
int32_t listeningRegisterByPath(TorqRequestParcel& parcel, std::vector<std::string> paths,
                                const std::shared_ptr<IClientCallbackByPath>& callback,
                                HalSharedLock& lock, ITorq* hal, const char* step) {
    int32_t handle = -1;
    std::lock_guard<std::mutex> groupsGuard(listening_groups_mutex);
    if (samePaths(paths)) {
        TORQ_LOGE("Same callback interface registered already");
        return -1;
    }
    auto client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, true);
    ndk::ScopedAStatus status = hal->listeningRegister(parcel, client, &handle);
    lock.unlock();
    if (status.isOk()) {
        listening_groups.push_back({{}, std::move(paths), handle, std::move(client)});
        TORQ_LOGI("A callback has been registered to Torq HAL ");
    } else {
        checkHalStatus(status, step);
    }
    return handle;
}

}  // namespace

namespace torqHalclient {

void torq_init() {
    TORQ_LOGI("torq client torq_init");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return;
    ndk::ScopedAStatus status = hal->init();
    lock.unlock();
    checkHalStatus(status, "torq_init");
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
    TORQ_LOGI("torqResListeningRegister");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    parcel.data = toRequestData(resources);
    parcel.tag = tag;
    std::vector<int32_t> ids;
    ids.reserve(resources.size());
    for (const ZelClient::Resource& res : resources) ids.push_back(res.id);

    std::lock_guard<std::mutex> groupsGuard(listening_groups_mutex);
    if (sameIds(ids)) {
        TORQ_LOGE("Same callback interface registered already");
        return -1;
    }
    auto client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, false);
    ndk::ScopedAStatus status = hal->listeningRegister(parcel, client, &handle);
    lock.unlock();
    if (status.isOk()) {
        listening_groups.push_back({std::move(ids), {}, handle, std::move(client)});
        TORQ_LOGI("A callback has been registered to Torq HAL ");
    } else {
        // Reported under the map registration's name; tools grep for it.
        checkHalStatus(status, "torq_res_listening_register_map");
    }
    return handle;
}

int32_t torqResListeningUnRegister(int32_t handle) {
    TORQ_LOGI("torq client torqResListeningUnRegister");
    int32_t result = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    ndk::ScopedAStatus status = hal->listeningUnregister(handle, &result);
    lock.unlock();

    // The local registration goes whatever the HAL said: the caller is done with it.
    std::lock_guard<std::mutex> groupsGuard(listening_groups_mutex);
    auto kept = listening_groups.begin();
    bool found = false;
    for (auto it = listening_groups.begin(); it != listening_groups.end(); ++it) {
        if (it->handle == handle) {
            found = true;
            TORQ_LOGI("a callback has been unregistered to Torq HAL handle %d", handle);
            continue;
        }
        if (kept != it) *kept = std::move(*it);
        ++kept;
    }
    listening_groups.erase(kept, listening_groups.end());
    if (!found) TORQ_LOGE("The callback was not registered before");
    checkHalStatus(status, "torqResListeningUnRegister");
    return result;
}

int32_t torqResStateRequest(std::list<ZelClient::Resource>& resources, int32_t tag,
                            std::list<ZelClient::Resource>& output) {
    TORQ_LOGI("torq client torqResStateRequest");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    parcel.data = toRequestData(resources);
    parcel.tag = tag;
    TORQ_LOGI("torq client hal torqResStateRequest");
    std::vector<TorqRequestData> records;
    ndk::ScopedAStatus status = hal->stateRequest(parcel, &records);
    lock.unlock();
    if (!checkHalStatus(status, "torqResStateRequest") || records.empty()) return -1;

    for (TorqRequestData& record : records) {
        output.push_back(
                {record.id, record.value.has_value() ? std::move(*record.value) : std::string()});
    }
    int32_t size = static_cast<int32_t>(output.size());
    TORQ_LOGI("torq client torqResStateRequest size %d", size);
    return size;
}

int32_t torqThermalNotify(std::list<ZelClient::Resource>& levels, int32_t tag) {
    TORQ_LOGI("torq client torqThermalNotify");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    if (!checkResourceList(levels)) {
        TORQ_LOGE("torqThermalNotify ERROR: size unmatched for id and level ");
        return -1;
    }
    TorqRequestParcel parcel;
    parcel.kind = kKindThermalNotify;
    parcel.data = toRequestData(levels);
    parcel.tag = tag;
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status, "torqThermalNotify");
    return handle >= 1 ? 0 : -1;
}

int32_t torqThermalListeningRegister(const std::vector<int32_t>& ids,
                                     const std::shared_ptr<IClientCallback>& callback) {
    TORQ_LOGI("torqThermalListeningRegister");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    auto client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, true, false);
    ndk::ScopedAStatus status = hal->thermalListeningRegister(ids, client, &handle);
    lock.unlock();
    if (status.isOk()) {
        // Thermal subsystems may be watched more than once; callers register them from one
        // thread, so the registry is not locked here.
        listening_groups.push_back({ids, {}, handle, std::move(client)});
        TORQ_LOGI("subsys's callback has been registered to Torq HAL");
    } else {
        checkHalStatus(status, "torqThermalListeningRegister");
    }
    return handle;
}

int32_t torqThermalListeningUnregister(int32_t handle) {
    TORQ_LOGI("torq client torqThermalListeningUnregister");
    int32_t result = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    ndk::ScopedAStatus status = hal->thermalListeningUnregister(handle, &result);
    lock.unlock();
    // The registration itself stays: torqResListeningUnRegister removes it by handle.
    if (checkHalStatus(status, "torqThermalListeningUnregister")) {
        TORQ_LOGI("subsys's callback has been unRegistered to Torq HAL");
    }
    return result;
}

// ---- Path-addressed calls ------------------------------------------------------------------

int32_t torq_resctl_request_by_path(int32_t a, int64_t b, const std::vector<std::string>& paths,
                                    const std::vector<std::string>& values, int32_t c, int32_t d,
                                    int32_t e) {
    TORQ_LOGI("torq client torq_resctl_request");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    torq_add_zdbdebug_for_request_parcel(parcel);
    parcel.flag = d >= 1;
    if (paths.size() != values.size()) {
        TORQ_LOGE("torq_resctl_request ERROR: size unmatched for paths and value ");
        return -1;
    }
    parcel.option = c;
    parcel.tag = e;
    parcel.duration = b;
    parcel.param = a;
    parcel.kind = kKindResCtl;
    parcel.data = toPathData(paths, &values);
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status, "torq_resctl_request_by_path");
    return handle;
}

int32_t torq_resctl_request_with_callback_by_path(
        int32_t a, int64_t b, const std::vector<std::string>& paths,
        const std::vector<std::string>& values, int32_t c, int32_t d, int32_t e,
        const std::shared_ptr<IClientCallbackByPath>& callback) {
    TORQ_LOGI("torq client torq_resctl_request_with_callback");
    int32_t handle = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    torq_add_zdbdebug_for_request_parcel(parcel);
    parcel.flag = d >= 1;
    if (paths.size() != values.size()) {
        TORQ_LOGE("torq client torq_resctl_request ERROR: size unmatched for id and value ");
        return -1;
    }
    parcel.option = c;
    parcel.tag = e;
    parcel.duration = b;
    parcel.param = a;
    parcel.kind = kKindResCtl;
    TORQ_LOGI("new std::shared_ptr TorqCallbackClient callback");
    auto client = ndk::SharedRefBase::make<TorqCallbackClient>(callback, false, true);
    addRequestCallback(client,
                       "torq client torq_resctl_request_with_callback add to request_callbacks");
    parcel.callback = std::move(client);
    parcel.data = toPathData(paths, &values);
    ndk::ScopedAStatus status = hal->request(parcel, &handle);
    lock.unlock();
    checkHalStatus(status, "torq client torq_resctl_request_with_callback");
    return handle;
}

int32_t torq_res_state_request_by_path(const std::vector<std::string>& paths,
                                       const std::vector<std::string>& values, int32_t tag,
                                       std::vector<std::string>& output) {
    TORQ_LOGI("torq client torq_res_state_request");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    torq_add_zdbdebug_for_request_parcel(parcel);
    parcel.tag = tag;
    // Values are optional in a state query; without a matching set only the paths are asked.
    bool withValues = !values.empty() && values.size() == paths.size();
    parcel.data = toPathData(paths, withValues ? &values : nullptr);
    std::vector<TorqRequestData> records;
    ndk::ScopedAStatus status = hal->stateRequest(parcel, &records);
    lock.unlock();
    if (!checkHalStatus(status, "torq_res_state_request") || records.empty()) return -1;

    for (TorqRequestData& record : records) {
        output.push_back(record.value.has_value() ? std::move(*record.value) : std::string());
    }
    int32_t size = static_cast<int32_t>(output.size());
    TORQ_LOGI("torq client torq_res_state_request size %d", size);
    return size;
}

int32_t torq_res_state_request_map_by_path(const std::map<std::string, std::string>& paths,
                                           int32_t tag, std::map<std::string, std::string>& output) {
    TORQ_LOGI("torq client torq_res_state_request_map");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

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
    std::vector<TorqRequestData> records;
    ndk::ScopedAStatus status = hal->stateRequest(parcel, &records);
    lock.unlock();
    if (!checkHalStatus(status, "torq_res_state_request_map") || records.empty()) return -1;

    for (const TorqRequestData& record : records) {
        if (!record.value.has_value() || !record.path.has_value()) continue;
        output[*record.path] = *record.value;
        TORQ_LOGE("res_Path: %s, res_Value:%s", record.path->c_str(), record.value->c_str());
    }
    int32_t size = static_cast<int32_t>(output.size());
    TORQ_LOGI("torq client torq_res_state_request_map size %d", size);
    return size;
}

int32_t torq_res_listening_register_by_path(const std::vector<std::string>& paths, int32_t tag,
                                            const std::shared_ptr<IClientCallbackByPath>& callback) {
    TORQ_LOGI("torq client torq_res_listening_register");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    torq_add_zdbdebug_for_request_parcel(parcel);
    parcel.tag = tag;
    parcel.data = toPathData(paths, nullptr);
    return listeningRegisterByPath(parcel, paths, callback, lock, hal,
                                   "torq_res_listening_register");
}

int32_t torq_res_listening_register_map_by_path(
        const std::map<std::string, std::string>& paths, int32_t tag,
        const std::shared_ptr<IClientCallbackByPath>& callback) {
    TORQ_LOGI("torq client torq_res_listening_register_map");
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;

    TorqRequestParcel parcel;
    torq_add_zdbdebug_for_request_parcel(parcel);
    parcel.tag = tag;
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
    return listeningRegisterByPath(parcel, std::move(keys), callback, lock, hal,
                                   "torq_res_listening_register_map");
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
    TORQ_LOGI("torq client torqPropertyGet");
    char* buffer = new char[kPropertyBufferSize];
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal != nullptr) {
        std::string text;
        ndk::ScopedAStatus status = hal->propertyGet(name, &text);
        // A value that does not fit must not be handed back cut short.
        size_t length = strlen(text.c_str());
        if (length >= kPropertyBufferSize) abort();
        memcpy(buffer, text.c_str(), length + 1);
        lock.unlock();
        checkHalStatus(status, "torqPropertyGet");
    }
    // Bounded: without a HAL the buffer was never written.
    TORQ_LOGI("torqPropertyGet %.*s ", static_cast<int>(kPropertyBufferSize), buffer);
    return buffer;
}

int32_t torqPropertySet(const std::string& name, const std::string& value) {
    TORQ_LOGI("torq client torqPropertySet");
    int32_t result = -1;
    HalSharedLock lock(g_torq_hal_mutex, std::defer_lock);
    ITorq* hal = lockHal(lock);
    if (hal == nullptr) return -1;
    ndk::ScopedAStatus status = hal->propertySet(name, value, &result);
    lock.unlock();
    checkHalStatus(status, "torqPropertySet");
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
