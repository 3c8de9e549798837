#include "Rows.h"

#include <optional>
#include <utility>

#include "ZelWrapper.h"
#include "torqHalclient.h"
#include "zel.h"

namespace zel_bench {

std::vector<TorqRequestData> stateAnswer() {
    return records(kResources);
}

TorqRequestParcel resCtlParcel(std::vector<TorqRequestData> data) {
    TorqRequestParcel p;
    p.kind = 1;
    p.data = std::move(data);
    p.flag = false;
    p.option = -1;
    p.tag = kTag;
    p.duration = kDuration;
    p.param = -1;
    return p;
}

TorqRequestParcel eventParcel(int32_t eventId) {
    TorqRequestParcel p;
    p.kind = 8;
    p.data.emplace_back().id = eventId;
    p.pkg = kPackage;
    p.identity = kIdentity;
    p.duration = kDuration;
    return p;
}

Floors buildFloors() {
    Floors f;
    f.resCtl = resCtlParcel(records(kResources));

    f.state.tag = kTag;
    for (const Res& r : kResources) {
        TorqRequestData& d = f.state.data.emplace_back();
        d.id = r.id;
        d.value = "";  // ids only: the value travels present and empty
    }

    f.byPath = resCtlParcel({});
    f.byPath.extras = std::vector<std::optional<std::string>>{"zdbdebug"};
    for (size_t i = 0; i < std::size(kPaths); ++i) {
        TorqRequestData& d = f.byPath.data.emplace_back();
        d.path = kPaths[i];
        d.value = kPathValues[i];
    }

    f.event = eventParcel(kEventId);
    f.firstAction = eventParcel(kFirstActionId);
    f.lastAction = eventParcel(kLastActionId);
    f.rule = records(kResources);
    f.targetLoad = records(kTargetLoadEntries);
    f.gameAdp = records(kGameAdpEntries);
    return f;
}

Inputs buildInputs() {
    Inputs in;
    for (const Res& r : kResources) {
        in.resources.push_back(ZelClient::Resource{r.id, std::string(r.value)});
        in.stateIds.push_back(ZelClient::Resource{r.id, std::nullopt});
        in.ruleResources.push_back(ZelClient::Resource{r.id, std::string(r.value)});
    }
    in.paths.assign(std::begin(kPaths), std::end(kPaths));
    in.pathValues.assign(std::begin(kPathValues), std::end(kPathValues));
    return in;
}

namespace {

bool isOk(const ndk::ScopedAStatus& status) {
    return status.isOk();
}

// The name a notification is sent under, built where the call is made. Its length is given so
// that the compiler writes the short string in place whatever else this file holds: otherwise
// how the caller builds its own argument would move with the inlining of unrelated code.
inline std::string notifierName() {
    return std::string("bench", 5);
}

}  // namespace

Call requestFloor(const std::shared_ptr<ITorq>& hal, const TorqRequestParcel& parcel) {
    return [hal, &parcel] {
        int32_t handle = -1;
        return isOk(hal->request(parcel, &handle)) && handle == kHandle;
    };
}

Call ruleCtlFloor(const std::shared_ptr<ITorq>& hal, int32_t rule, int32_t status,
                  const std::vector<TorqRequestData>& data) {
    return [hal, rule, status, &data] {
        int32_t result = -1;
        return isOk(hal->ruleCtl(rule, status, data, &result)) && result == kResult;
    };
}

std::vector<NamedCall> floorCalls(const std::shared_ptr<ITorq>& hal, const Floors& f) {
    auto request = [&hal](const TorqRequestParcel& parcel) { return requestFloor(hal, parcel); };
    auto ruleCtl = [&hal](int32_t rule, int32_t status, const std::vector<TorqRequestData>& data) {
        return ruleCtlFloor(hal, rule, status, data);
    };
    return {
            {"ITorq::request/resctl", request(f.resCtl), nullptr},
            {"ITorq::stateRequest",
             [hal, &f] {
                 std::vector<TorqRequestData> out;
                 return isOk(hal->stateRequest(f.state, &out)) &&
                        out.size() == std::size(kResources);
             },
             nullptr},
            {"ITorq::request/by_path", request(f.byPath), nullptr},
            {"ITorq::request/event", request(f.event), nullptr},
            {"ITorq::request/first_action", request(f.firstAction), nullptr},
            {"ITorq::request/last_action", request(f.lastAction), nullptr},
            {"ITorq::ruleCtl/rule", ruleCtl(130, 1, f.rule), nullptr},
            {"ITorq::ruleCtl/target_load", ruleCtl(130, 1, f.targetLoad), nullptr},
            {"ITorq::ruleCtl/game_adp", ruleCtl(9000, 1, f.gameAdp), nullptr},
            {"ITorq::release",
             [hal] {
                 int32_t result = -1;
                 return isOk(hal->release(kHandle, &result)) && result == kResult;
             },
             nullptr},
    };
}

std::vector<Row> frontEndRows(Inputs& in) {
    return {
            {"torqResCtlRequest, 3 resources",
             {"torqResCtlRequest/3_resources",
              [&in] {
                  return torqHalclient::torqResCtlRequest(kDuration, in.resources, kTag) == kHandle;
              },
              nullptr},
             "ITorq::request/resctl"},
            {"torqResStateRequest, 3 ids",
             {"torqResStateRequest/3_ids",
              [&in] {
                  return torqHalclient::torqResStateRequest(in.stateIds, kTag, in.stateOut) ==
                         static_cast<int32_t>(std::size(kResources));
              },
              // The values handed back are the caller's; emptying the list is not the call's.
              [&in] { in.stateOut.clear(); }},
             "ITorq::stateRequest"},
            {"torq_resctl_request_by_path, 3 paths",
             {"torq_resctl_request_by_path/3_paths",
              [&in] {
                  return torqHalclient::torq_resctl_request_by_path(
                                 -1, kDuration, in.paths, in.pathValues, -1, 0, kTag) == kHandle;
              },
              nullptr},
             "ITorq::request/by_path"},
            {"torqResCtlRelease",
             {"torqResCtlRelease",
              [] { return torqHalclient::torqResCtlRelease(kHandle) == kResult; }, nullptr},
             "ITorq::release",
             true},
            {"ZelEventAcquire",
             {"ZelEventAcquire/event_11",
              [] { return ZelEventAcquire(kEventId, kPackage, kIdentity, kDuration, {}) == kHandle; },
              nullptr},
             "ITorq::request/event"},
            {"zelRuleCtl, 3 resources",
             {"zelRuleCtl/3_resources",
              [&in] { return zelRuleCtl(130, 1, in.ruleResources) == kResult; }, nullptr},
             "ITorq::ruleCtl/rule"},
            {"ZelRelease",
             {"ZelRelease",
              [] {
                  ZelRelease(kHandle);
                  return true;  // nothing comes back; the HAL's call count tells it arrived
              },
              nullptr},
             "ITorq::release",
             true},
            {"ZelEventAcquireWrapper, first action",
             {"ZelEventAcquireWrapper/first_action",
              [] {
                  return ZelEventAcquireWrapper(kFirstAction, kPackage, kIdentity, kDuration) ==
                         kHandle;
              },
              nullptr},
             "ITorq::request/first_action"},
            {"ZelEventAcquireWrapper, last action",
             {"ZelEventAcquireWrapper/last_action",
              [] {
                  return ZelEventAcquireWrapper(kLastAction, kPackage, kIdentity, kDuration) ==
                         kHandle;
              },
              nullptr},
             "ITorq::request/last_action"},
            {"ZelNotifyWapper, src 130 + data",
             {"ZelNotifyWapper/src_130",
              [] { return ZelNotifyWapper(notifierName(), 130, 1, 0, 0, 0, kTargetLoadData) == 0; },
              nullptr},
             "ITorq::ruleCtl/target_load"},
            {"ZelNotifyWapper, src 9000 + data",
             {"ZelNotifyWapper/src_9000",
              [] { return ZelNotifyWapper(notifierName(), 9000, 1, 0, 0, 0, kGameAdpData) == 0; },
              nullptr},
             "ITorq::ruleCtl/game_adp"},
    };
}

}  // namespace zel_bench
