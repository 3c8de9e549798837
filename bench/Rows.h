#pragma once

// The benchmark rows, defined once for both programs that measure them: zel_bench times each
// front-end call against its floor, zel_instructions counts the instructions of both. A floor is
// the ITorq method the call ends in, called directly on a proxy with the request it must send,
// built beforehand; the two programs compare the same pairs with the same inputs.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "BenchHal.h"
#include "ZelClient.h"

namespace zel_bench {

// --- Workloads ---------------------------------------------------------------------------------
// Typical requests: a few resources with short values, a package name and an identity.

inline constexpr int32_t kDuration = 3000;
inline constexpr int32_t kTag = 7;
inline constexpr int32_t kEventId = 11;  // ACTION_CAMERA_OPEN
inline const std::string kPackage = "com.example.camera";
inline const std::string kIdentity = "bench";

/// A resource id and the value a request gives it.
struct Res {
    int32_t id;
    const char* value;
};
inline constexpr Res kResources[] = {
        {0x010108A0, "1000"}, {0x01010B10, "2"}, {0x01020050, "1800000"}};
inline constexpr const char* kPaths[] = {"/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq",
                                         "/sys/devices/system/cpu/cpufreq/policy4/scaling_min_freq",
                                         "/dev/cpuctl/top-app/cpu.uclamp.min"};
inline constexpr const char* kPathValues[] = {"1200000", "1800000", "512"};

// Wrapper: the first and the last named action, and two notifications with data.
inline const std::string kFirstAction = "VARDEX_ACTION_LAUNCH";
inline constexpr int32_t kFirstActionId = 0;
inline const std::string kLastAction = "VARDEX_ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1";
inline constexpr int32_t kLastActionId = 198;
inline const std::string kTargetLoadData = "l-80,m-60,b-40";
inline constexpr Res kTargetLoadEntries[] = {
        {0x010108A0, "80"}, {0x010108B0, "60"}, {0x010108C0, "40"}};
inline const std::string kGameAdpData =
        "2,2,1,1;4,4,2,2;1800000,2000000,2200000,900000;"
        "1200000,1400000,1600000,600000";
inline constexpr Res kGameAdpEntries[] = {
        {0x01010B10, "2"},       {0x01010B20, "2"},       {0x01010B30, "1"},
        {0x01020070, "1"},       {0x01010B90, "4"},       {0x01010BA0, "4"},
        {0x01010BB0, "2"},       {0x01020080, "2"},       {0x01010010, "1800000"},
        {0x01010020, "2000000"}, {0x01010030, "2200000"}, {0x01020050, "900000"},
        {0x010100A0, "1200000"}, {0x010100B0, "1400000"}, {0x010100C0, "1600000"},
        {0x01020060, "600000"}};

/// The records the HAL receives for `resources`: each id with its value.
template <size_t N>
std::vector<TorqRequestData> records(const Res (&resources)[N]) {
    std::vector<TorqRequestData> data;
    for (const Res& r : resources) {
        TorqRequestData& d = data.emplace_back();
        d.id = r.id;
        d.value = r.value;
    }
    return data;
}

/// What the state query answers: the current value of each resource.
std::vector<TorqRequestData> stateAnswer();

/// A resource-control request as the library sends it, carrying `data`.
TorqRequestParcel resCtlParcel(std::vector<TorqRequestData> data);

/// An event request as the library sends it, for `eventId`.
TorqRequestParcel eventParcel(int32_t eventId);

// --- The inputs, built once --------------------------------------------------------------------

/// What the floors send: the requests the front ends must build, built beforehand.
struct Floors {
    TorqRequestParcel resCtl;                 ///< torqResCtlRequest(duration, 3 resources, tag)
    TorqRequestParcel state;                  ///< torqResStateRequest(3 ids, tag, out)
    TorqRequestParcel byPath;                 ///< torq_resctl_request_by_path(-1, duration, ...)
    TorqRequestParcel event;                  ///< ZelEventAcquire(11, package, identity, ...)
    TorqRequestParcel firstAction;            ///< ZelEventAcquireWrapper(first action, ...)
    TorqRequestParcel lastAction;             ///< ZelEventAcquireWrapper(last action, ...)
    std::vector<TorqRequestData> rule;        ///< zelRuleCtl(130, 1, 3 resources)
    std::vector<TorqRequestData> targetLoad;  ///< ZelNotifyWapper(src 130, type 1, data)
    std::vector<TorqRequestData> gameAdp;     ///< ZelNotifyWapper(src 9000, type 1, data)
};

/// Builds the floors' requests.
Floors buildFloors();

/// What the front ends are called with, in the caller's own types.
struct Inputs {
    std::list<ZelClient::Resource> resources;
    std::list<ZelClient::Resource> stateIds;
    std::list<ZelClient::Resource> stateOut;  ///< where the state query writes its answer
    std::vector<std::string> paths;
    std::vector<std::string> pathValues;
    std::vector<ZelClient::Resource> ruleResources;
};

/// Builds the front ends' arguments.
Inputs buildInputs();

// --- The calls ---------------------------------------------------------------------------------

/// One call; true when it got the answer the HAL gives.
using Call = std::function<bool()>;

/// A measured call under the name both programs know it by.
struct NamedCall {
    std::string name;
    Call call;
    /// The caller's own work between two calls, left out of the measure (optional).
    std::function<void()> between;
};

/// ITorq::request with `parcel`, which must outlive the call; true when the HAL's handle comes back.
Call requestFloor(const std::shared_ptr<ITorq>& hal, const TorqRequestParcel& parcel);

/// ITorq::ruleCtl with `data`, which must outlive the call; true when the HAL's result comes back.
Call ruleCtlFloor(const std::shared_ptr<ITorq>& hal, int32_t rule, int32_t status,
                  const std::vector<TorqRequestData>& data);

/// The bare transactions, one per request the front ends make. They refer to `hal` and `floors`,
/// which must outlive them.
std::vector<NamedCall> floorCalls(const std::shared_ptr<ITorq>& hal, const Floors& floors);

/// A front-end call and the floor it is compared with.
struct Row {
    /// The row's name in the instruction table and the budget file.
    std::string label;
    NamedCall call;
    /// The name of the floor's call, which must send the HAL exactly what this call sends.
    std::string floor;
    /// Nothing to build: the call is the connection check and the transaction, so it may not
    /// allocate beyond its floor.
    bool fastPath = false;
};

/// The front-end rows. They refer to `inputs`, which must outlive them.
std::vector<Row> frontEndRows(Inputs& inputs);

}  // namespace zel_bench
