// The flat API: exported Zel* entry points over their own cached connection to the Torq HAL.
//
// This connection is independent of the torqHalclient one on purpose: it has its own interface
// pointer, lock and death recipient, so the two front ends never wait on each other.

#include "zel.h"

#include "ZelRuleCtl.h"

#include "../utils/HalCallFrame.h"

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <android/log.h>
#include <cutils/trace.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <type_traits>
#include <utility>

// cutils/trace.h only declares these inside its inline helpers; we call them directly so that the
// section name is formatted only when tracing is on.
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

namespace {

constexpr char kTorqInstance[] = "vendor.quarn.hardware.torq.ITorq/default";
constexpr char kLogTag[] = "[ZEL_CLIENT]";

// TorqRequestParcel::kind values sent by the flat API.
constexpr int32_t kKindResourceState = 0;
constexpr int32_t kKindResourceAcquire = 1;
constexpr int32_t kKindEventAcquire = 8;
constexpr int32_t kKindNotify = 10;
constexpr int32_t kKindHistory = 11;
constexpr int32_t kKindPlatformResourceAcquire = 12;
constexpr int32_t kKindPowerMode = 13;

// Command ids that ZelEventAcquire reserves for the plain resource acquisitions.
constexpr int32_t kCmdResourceAcquire = -2;
constexpr int32_t kCmdPlatformResourceAcquire = -3;

}  // namespace

#define LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, kLogTag, __VA_ARGS__)
#define LOGI(...) __android_log_print(ANDROID_LOG_INFO, kLogTag, __VA_ARGS__)
#define LOGE(...) __android_log_print(ANDROID_LOG_ERROR, kLogTag, __VA_ARGS__)

// The one lock of the flat API, g_zel_hal_mutex, guards g_zel_hal: held shared by every entry
// point from the interface test through its one ITorq call, exclusive only to set or clear the
// interface (connect, death, failure rule), never upgraded from shared. No other lock of the
// library is taken under it, and it is taken under none.
static std::shared_ptr<ITorq> g_zel_hal;
static std::shared_timed_mutex g_zel_hal_mutex;
// Replaced at every connect. An older recipient may still be linked to a binder whose death
// notice is in flight, so it is never deleted.
static AIBinder_DeathRecipient* g_zel_death_recipient = nullptr;

namespace {

// Drops the cached interface. The proxy is destroyed outside the lock: releasing it talks to the
// binder runtime and must not keep callers waiting.
void dropZelHal() {
    std::shared_ptr<ITorq> dropped;  // outlives the lock
    std::unique_lock<std::shared_timed_mutex> lock(g_zel_hal_mutex);
    dropped.swap(g_zel_hal);
}

void onZelHalDied(void* /* cookie */) {
    std::shared_ptr<ITorq> dropped;  // outlives the lock
    std::unique_lock<std::shared_timed_mutex> lock(g_zel_hal_mutex);
    dropped.swap(g_zel_hal);
    LOGE("Torq HAL Service died");
}

int zel_get_torq_hal_and_link_to_death() {
    {
        std::shared_lock<std::shared_timed_mutex> lock(g_zel_hal_mutex);
        if (g_zel_hal != nullptr) {
            return 0;
        }
    }

    // Deliberately no second look at g_zel_hal here: callers that raced past the check above each
    // connect, and the last one's interface stays.
    std::unique_lock<std::shared_timed_mutex> lock(g_zel_hal_mutex);
    if (!AServiceManager_isDeclared(kTorqInstance)) {
        const int declared = AServiceManager_isDeclared(kTorqInstance) ? 1 : 0;
        LOGE("Torq is not declared, AServiceManager_isDeclared:%d", declared);
        return -1;
    }
    {
        ndk::SpAIBinder binder(AServiceManager_checkService(kTorqInstance));
        g_zel_hal = ITorq::fromBinder(binder);
    }
    if (g_zel_hal == nullptr) {
        LOGE("Torq HAL Service not found");
        return -1;
    }
    g_zel_death_recipient = AIBinder_DeathRecipient_new(onZelHalDied);
    const binder_status_t linked = AIBinder_linkToDeath(g_zel_hal->asBinder().get(),
                                                        g_zel_death_recipient, g_zel_hal.get());
    if (linked != STATUS_OK) {
        g_zel_hal = nullptr;
        LOGE("Unable to link to g_zel_hal death notifications!");
        return -1;
    }
    return 0;
}

// This front end's side of the call frame (utils/HalCallFrame.h).
struct ZelFront {
    static constexpr const char* kLogTag = ::kLogTag;
    static constexpr const char* kCallFailedFormat = "%s() failed : torq HAL service not available";

    static std::shared_timed_mutex& mutex() { return g_zel_hal_mutex; }
    static ITorq* cachedHal() { return g_zel_hal.get(); }
    // The connect step of every entry point, which logs its failure the same way for all.
    static bool connectHal() {
        const int ret = zel_get_torq_hal_and_link_to_death();
        if (ret != 0) {
            LOGE("zel_get_torq_hal_and_link_to_death error:%d", ret);
            return false;
        }
        return true;
    }
    static void dropHal() { dropZelHal(); }
};

using Frame = halframe::HalFrame<ZelFront>;
using halframe::HalCall;

// A request entry for one caller resource. The value always travels present, as an empty text
// when the caller gave none.
void appendResourceRecord(std::vector<TorqRequestData>& records, const ZelClient::Resource& res) {
    TorqRequestData& record = records.emplace_back();
    record.id = res.id;
    if (res.value.has_value()) {
        record.value = *res.value;
    } else {
        record.value.emplace();
    }
}

// The same, for a resource the caller gave up: its value moves into the entry.
void appendResourceRecord(std::vector<TorqRequestData>& records, ZelClient::Resource&& res) {
    TorqRequestData& record = records.emplace_back();
    record.id = res.id;
    if (res.value.has_value()) {
        record.value = std::move(*res.value);
    } else {
        record.value.emplace();
    }
}

bool alwaysTraceEnabled() {
    return (atrace_get_enabled_tags() & ATRACE_TAG_ALWAYS) != 0;
}

// A trace section name in a zero-filled 1024-byte buffer holding at most 1022 characters. Texts
// are cut at their first NUL, and nothing after such a cut is added, so the name reads exactly as a
// C-string formatting of the whole description would.
class TraceName {
  public:
    static constexpr size_t kMaxChars = 1022;

    void put(const char* text, size_t size) {
        if (full_) return;
        if (const void* nul = std::memchr(text, '\0', size)) {
            size = static_cast<size_t>(static_cast<const char*>(nul) - text);
            full_ = true;
        }
        if (size > kMaxChars - length_) {
            size = kMaxChars - length_;
            full_ = true;
        }
        std::memcpy(buffer_ + length_, text, size);
        length_ += size;
    }
    void put(const char* text) { put(text, std::strlen(text)); }
    void put(const std::string& text) { put(text.data(), text.size()); }
    void putNumber(int32_t value) {
        char digits[16];
        const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
        put(digits, static_cast<size_t>(end - digits));
    }
    const char* c_str() const { return buffer_; }

  private:
    char buffer_[1024] = {};
    size_t length_ = 0;
    bool full_ = false;
};

// Marks a moment in the trace: a section opened and closed at once.
template <typename FillName>
void traceMark(FillName fill) {
    if (alwaysTraceEnabled()) {
        TraceName name;
        fill(name);
        atrace_begin_body(name.c_str());
    }
    if (alwaysTraceEnabled()) {
        atrace_end_body();
    }
}

// Stands in for an empty package or identity in logs and trace names.
const std::string kNone = "none";

const char* orNone(const std::string& text) {
    return text.empty() ? kNone.c_str() : text.c_str();
}

// zelRuleCtl over a list to copy (const) or to take (non-const: the values move).
template <typename Resources>
int32_t ruleCtl(int32_t ruleId, int32_t status, Resources& resources) {
    LOGI("zelRuleCtl, ruleId:%d, status:%d", ruleId, status);
    int32_t result = -1;
    HalCall made = Frame::callHal("zelRuleCtl", [&](ITorq& hal) {
        std::vector<TorqRequestData> entries;
        entries.reserve(resources.size());
        for (auto& res : resources) {
            if constexpr (std::is_const_v<Resources>) {
                appendResourceRecord(entries, res);
            } else {
                appendResourceRecord(entries, std::move(res));
            }
        }
        return hal.ruleCtl(ruleId, status, entries, &result);
    });
    return made == HalCall::kOk ? result : -1;
}

}  // namespace

extern "C" {

ZEL_EXPORT int32_t zelInit() {
    LOGE("zelInit enter");
    switch (Frame::callHal(
            "torq_init", [](ITorq& hal) { return hal.init(); }, "g_zel_hal is null")) {
        case HalCall::kOk:
            return 0;
        case HalCall::kFailed:
            return -2;
        default:
            return -1;
    }
}

ZEL_EXPORT int32_t ZelEventAcquire(int32_t cmdId, const std::string& pkg,
                                   const std::string& identity, int32_t duration,
                                   const std::vector<ZelClient::Resource>& resources) {
    traceMark([&](TraceName& name) {
        name.put("ZelEventAcquire  cmd_id:");
        name.putNumber(cmdId);
        name.put(" pkg:");
        name.put(pkg.empty() ? kNone : pkg);
        name.put(" identity:");
        name.put(identity.empty() ? kNone : identity);
        name.put(" duration:");
        name.putNumber(duration);
    });
    LOGI("ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", cmdId, orNone(pkg), orNone(identity));

    int32_t handle = -1;
    HalCall made = Frame::callHal("ZelEventAcquire", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        switch (cmdId) {
            case kCmdResourceAcquire:
                parcel.kind = kKindResourceAcquire;
                break;
            case kCmdPlatformResourceAcquire:
                parcel.kind = kKindPlatformResourceAcquire;
                break;
            default:
                parcel.kind = kKindEventAcquire;
                break;
        }
        parcel.identity = identity;
        parcel.duration = duration;
        parcel.pkg = pkg;
        const bool isEvent = parcel.kind == kKindEventAcquire;
        parcel.data.reserve(resources.size() + (isEvent ? 1 : 0));
        if (isEvent) {
            parcel.data.emplace_back().id = cmdId;
        }
        for (const ZelClient::Resource& res : resources) {
            appendResourceRecord(parcel.data, res);
        }
        return hal.request(parcel, &handle);
    });
    if (made == HalCall::kFailed) {
        LOGE("torqResCtlRequest error:%d", handle);
    }
    return made == HalCall::kOk ? handle : -1;
}

ZEL_EXPORT int32_t ZelResAcquire(const std::vector<ZelClient::Resource>& resources,
                                 int64_t /* reserved */, const std::string& identity,
                                 int32_t duration) {
    LOGI("ZelResAcquire");
    return ZelEventAcquire(kCmdResourceAcquire, std::string(), identity, duration, resources);
}

ZEL_EXPORT int32_t ZelPlatformResAcquire(const std::vector<ZelClient::Resource>& resources,
                                         int64_t /* reserved */, const std::string& identity,
                                         const std::string& pkg, int32_t duration) {
    LOGI("ZelPlatformResAcquire");
    return ZelEventAcquire(kCmdPlatformResourceAcquire, pkg, identity, duration, resources);
}

ZEL_EXPORT void ZelRelease(int32_t handle) {
    traceMark([&](TraceName& name) {
        name.put("ZelRelease: ");
        name.putNumber(handle);
    });
    LOGI("ZelRelease, handle:%d", handle);
    int32_t out = 0;
    // The HAL's answer carries nothing the caller could act on.
    Frame::callHal(
            "torqResCtlRelease", [&](ITorq& hal) { return hal.release(handle, &out); },
            "ZelRelease g_zel_hal is null");
}

ZEL_EXPORT int32_t ZelNotify(int32_t first, int32_t second, const std::vector<int32_t>& values) {
    LOGI("ZelNotify enter");
    int32_t result = -1;
    HalCall made = Frame::callHal("ZelNotify", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.kind = kKindNotify;
        // The value texts have never reached the HAL: HALs in the field read one identical entry
        // per value and expect `extras` absent. They are still produced, as they always were, but
        // kept apart from the parcel.
        std::vector<std::optional<std::string>> unsentTexts;
        unsentTexts.reserve(values.size());
        const size_t entries = values.empty() ? 1 : values.size();
        parcel.data.resize(entries);
        for (TorqRequestData& record : parcel.data) {
            record.id = first;
            record.subId = second;
        }
        for (int32_t value : values) {
            unsentTexts.emplace_back(std::to_string(value));
        }
        return hal.request(parcel, &result);
    });
    return made == HalCall::kOk ? result : -1;
}

ZEL_EXPORT int32_t setRelatedSysInfo(int32_t first, int64_t second) {
    int32_t result = -1;
    HalCall made = Frame::callHal("setRelatedSysInfo", [&](ITorq& hal) {
        return hal.setRelatedSysInfo(first, second, &result);
    });
    return made == HalCall::kOk ? result : -1;
}

ZEL_EXPORT int32_t zelRuleCtl(int32_t ruleId, int32_t status,
                              const std::vector<ZelClient::Resource>& resources) {
    return ruleCtl(ruleId, status, resources);
}

ZEL_EXPORT int32_t ZelMutiResStateRequest(std::vector<ZelClient::Resource>& resources) {
    LOGI("ZelMutiResStateRequest enter");
    std::vector<TorqRequestData> records;
    // The empty list is turned down once connected and locked, before the interface test.
    auto haveResources = [&] {
        if (resources.empty()) {
            LOGE("input resource is empty, return");
            return false;
        }
        return true;
    };
    HalCall made = Frame::callHal(
            "ZelMutiResStateRequest",
            [&](ITorq& hal) {
                TorqRequestParcel parcel;
                parcel.kind = kKindResourceState;
                // Only the ids: the HAL answers with the current values.
                parcel.data.resize(resources.size());
                for (size_t i = 0; i < resources.size(); ++i) {
                    parcel.data[i].id = resources[i].id;
                }
                return hal.stateRequest(parcel, &records);
            },
            nullptr, haveResources);
    if (made != HalCall::kOk) {
        return -1;
    }
    if (records.empty()) {
        LOGE("failed to get resource value");
        return -1;
    }

    int32_t filled = 0;
    for (ZelClient::Resource& res : resources) {
        auto match = std::find_if(records.begin(), records.end(),
                                  [&](const TorqRequestData& r) { return r.id == res.id; });
        if (match == records.end()) {
            LOGI("not match any opcode in zelcore");
            continue;
        }
        if (!match->value.has_value()) {
            continue;
        }
        res.value = *match->value;
        LOGD("get resource value, opcode 0x%08x, value %s", static_cast<uint32_t>(res.id),
             res.value->c_str());
        ++filled;
    }
    return filled;
}

ZEL_EXPORT void ZelResStateRequest(int32_t opcode, std::string& value) {
    LOGI("ZelResStateRequest enter");
    std::vector<ZelClient::Resource> resources(1);
    resources[0].id = opcode;
    resources[0].value.emplace();
    if (ZelMutiResStateRequest(resources) == 1) {
        // Callers have always received the value as a C string.
        value.assign(resources[0].value->c_str());
    }
}

ZEL_EXPORT int32_t ZelGetHistory(std::string& history) {
    LOGI("zel client ZelGetHistory");
    std::vector<TorqRequestData> records;
    HalCall made = Frame::callHal("ZelGetHistory", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.kind = kKindHistory;
        LOGI("zel client hal ZelGetHistory");
        return hal.stateRequest(parcel, &records);
    });
    if (made == HalCall::kNoHal) {
        return -1;
    }
    if (made == HalCall::kOk && !records.empty()) {
        history = "start:";
        for (size_t i = 0; i < records.size(); ++i) {
            if (i != 0) history += ';';
            if (records[i].extra.has_value()) {
                history += *records[i].extra;
            } else {
                history += "none";
            }
        }
        history += ";end";
        LOGD("get history successful: %s", history.c_str());
        return 0;
    }
    LOGE("failed to get history or return vector empty, data vector size %d",
         static_cast<int>(records.size()));
    return -1;
}

ZEL_EXPORT int32_t ZelGetPMStatus(int32_t mode) {
    LOGI("zel client ZelGetPMStatus");
    std::vector<TorqRequestData> records;
    HalCall made = Frame::callHal("ZelGetPMStatus", [&](ITorq& hal) {
        TorqRequestParcel parcel;
        parcel.kind = kKindPowerMode;
        parcel.data.emplace_back().id = mode;
        LOGI("zel client hal ZelGetPMStatus");
        return hal.stateRequest(parcel, &records);
    });
    if (made == HalCall::kNoHal) {
        return -1;
    }
    if (made == HalCall::kOk && !records.empty()) {
        try {
            // value() throws std::bad_optional_access for an absent value; callers of this
            // function have always been handed that exception, so it is not caught here.
            return std::stoi(records[0].value.value());
        } catch (const std::invalid_argument& e) {
            std::cout << "Invalid argument exception: " << e.what() << std::endl;
            return -1;
        } catch (const std::out_of_range& e) {
            std::cout << "Out of range exception: " << e.what() << std::endl;
            return -1;
        }
    }
    LOGE("failed to get power mode status, mode %d, data vector size %d", mode,
         static_cast<int>(records.size()));
    return -1;
}

}  // extern "C"

int32_t zelRuleCtlTaking(int32_t ruleId, int32_t status,
                         std::vector<ZelClient::Resource>&& resources) {
    return ruleCtl(ruleId, status, resources);
}
