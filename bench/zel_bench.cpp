// What the library adds to a HAL call.
//
// Every row is a front-end call and its floor: the ITorq method the call ends in, called directly
// on a proxy with the request the call must send, built beforehand. Both reach the same HAL
// (BenchHal), which answers at once from its own emulated process, so what lies between them is
// the library's own work: the log lines, the connection check, the lock, building the request
// and reading the answer. Before anything is measured, every call must get the HAL's answer and
// send it exactly what its floor sends, in one HAL call.
//
//   zel_bench [--quick] [DIR] [Google Benchmark flags]
//       timings, for information: each row's median call next to its floor's, in the least
//       disturbed of 20 interleaved repetitions each; the bare transaction next to a thread
//       handoff; calls per second of 1 to 8 callers. With DIR, writes scaling-times.dat and
//       throughput.dat there for bench/scaling.gp. --quick: one short pass, which shows that
//       everything still runs (the smoke test).
//   valgrind --tool=callgrind ... zel_bench --measure      (bench/instructions.sh)
//       counts each call, floor and log lines in callgrind dumps named after them;
//   zel_bench --report DIR [--budget FILE]
//       reads the dumps back from DIR/callgrind, prints the instruction tables, writes
//       DIR/scaling-instructions.dat and exits 1 when a front-end row's own instructions beyond
//       its log lines are over its budget.
// Exit status 2: something broke (a call without the HAL's answer, a missing dump).

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <binder_host/process.h>
#if ZEL_HAVE_CALLGRIND_H
#include <valgrind/callgrind.h>
#endif

#include <dirent.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchHal.h"
#include "ZelClient.h"
#include "ZelWrapper.h"
#include "torqHalclient.h"
#include "zel.h"

// Heap allocations on this thread. The library has no threads of its own, so everything it
// allocates for a call is counted here; a call's count minus its floor's is the library's own.
static thread_local uint64_t t_allocations = 0;

// Replacing this one is enough: the array and nothrow forms call it, and the shared libraries
// bind to it too. libstdc++'s operator delete frees with free().
void* operator new(std::size_t size) {
    ++t_allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}

namespace zel_bench {
namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ZelClient::Resource;

// --- Workloads ----------------------------------------------------------------------------------
// Typical requests: a few resources with short values, a package name and an identity.

constexpr int32_t kDuration = 3000;
constexpr int32_t kTag = 7;
constexpr int32_t kEventId = 11;  // ACTION_CAMERA_OPEN
const std::string kPackage = "com.example.camera";
const std::string kIdentity = "bench";

struct Res {
    int32_t id;
    const char* value;
};
constexpr Res kResources[] = {{0x010108A0, "1000"}, {0x01010B10, "2"}, {0x01020050, "1800000"}};
constexpr const char* kPaths[] = {"/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq",
                                  "/sys/devices/system/cpu/cpufreq/policy4/scaling_min_freq",
                                  "/dev/cpuctl/top-app/cpu.uclamp.min"};
constexpr const char* kPathValues[] = {"1200000", "1800000", "512"};

// Wrapper: the first and the last named action, and two notifications with the entries their
// data text stands for.
const std::string kFirstAction = "VARDEX_ACTION_LAUNCH";
constexpr int32_t kFirstActionId = 0;
const std::string kLastAction = "VARDEX_ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1";
constexpr int32_t kLastActionId = 198;
const std::string kTargetLoadData = "l-80,m-60,b-40";
constexpr Res kTargetLoadEntries[] = {{0x010108A0, "80"}, {0x010108B0, "60"}, {0x010108C0, "40"}};
const std::string kGameAdpData =
        "2,2,1,1;4,4,2,2;1800000,2000000,2200000,900000;1200000,1400000,1600000,600000";
constexpr Res kGameAdpEntries[] = {
        {0x01010B10, "2"},       {0x01010B20, "2"},       {0x01010B30, "1"},
        {0x01020070, "1"},       {0x01010B90, "4"},       {0x01010BA0, "4"},
        {0x01010BB0, "2"},       {0x01020080, "2"},       {0x01010010, "1800000"},
        {0x01010020, "2000000"}, {0x01010030, "2200000"}, {0x01020050, "900000"},
        {0x010100A0, "1200000"}, {0x010100B0, "1400000"}, {0x010100C0, "1600000"},
        {0x01020060, "600000"}};

// Scaling: list sizes (100,000 is bad input: far beyond any real request), one value of 1 MB
// (bad input too), and listening registrations already held.
constexpr size_t kLongValueBytes = 1 << 20;
constexpr size_t kSizes[] = {1, 10, 100, 1000, 100000, kLongValueBytes};
constexpr size_t kHeldRegistrations[] = {1, 10, 100, 1000};
constexpr int32_t kHeldIds = 0x02000000;

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

// `count` records with distinct ids; each value is `value`, or the index in decimal when empty.
std::vector<TorqRequestData> records(size_t count, const std::string& value = "") {
    std::vector<TorqRequestData> data(count);
    for (size_t i = 0; i < count; ++i) {
        data[i].id = 0x01000000 + static_cast<int32_t>(i);
        data[i].value = value.empty() ? std::to_string(1000 + i) : value;
    }
    return data;
}

// The same entries in the caller's types.
template <typename Container>
Container resources(const std::vector<TorqRequestData>& data) {
    Container out;
    for (const TorqRequestData& d : data) out.push_back(Resource{d.id, d.value});
    return out;
}

TorqRequestParcel resCtlParcel(std::vector<TorqRequestData> data) {
    TorqRequestParcel p;
    p.kind = 1;
    p.data = std::move(data);
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

// A request of ids only: each value travels present and empty.
TorqRequestParcel idsParcel(const std::list<Resource>& ids) {
    TorqRequestParcel p;
    for (const Resource& r : ids) {
        TorqRequestData& d = p.data.emplace_back();
        d.id = r.id;
        d.value = "";
    }
    p.tag = kTag;
    return p;
}

class Callback : public IClientCallback {
  public:
    void onCallback(std::list<Resource>) override {}
};

class TorqCallback : public BnTorqCallback {
  public:
    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

// Everything the calls refer to, built before any of them is made.
struct Inputs {
    std::shared_ptr<ITorq> hal;
    // The front ends' arguments.
    std::list<Resource> resources, stateIds, stateOut;
    std::vector<Resource> ruleResources;
    std::vector<std::string> paths{std::begin(kPaths), std::end(kPaths)};
    std::vector<std::string> pathValues{std::begin(kPathValues), std::end(kPathValues)};
    // What their floors send.
    TorqRequestParcel resCtl, state, byPath, event, firstAction, lastAction;
    std::vector<TorqRequestData> targetLoad, gameAdp;
    // Scaling, by list size or value bytes.
    std::map<size_t, std::list<Resource>> lists;
    std::map<size_t, std::vector<Resource>> vectors;
    std::map<size_t, TorqRequestParcel> parcels;
    // Listening: the list each measured call registers (and the same request for its floor), the
    // handle it got, and the registrations held meanwhile.
    std::shared_ptr<IClientCallback> callback = std::make_shared<Callback>();
    std::list<Resource> listenIds{Resource{kHeldIds - 1, std::nullopt}};
    TorqRequestParcel listenParcel;
    int32_t listenHandle = -1;
    std::vector<int32_t> held;
};

void build(Inputs& in) {
    in.resources = resources<std::list<Resource>>(records(kResources));
    in.ruleResources = resources<std::vector<Resource>>(records(kResources));
    in.resCtl = resCtlParcel(records(kResources));
    for (const Res& r : kResources) in.stateIds.push_back(Resource{r.id, std::nullopt});
    in.state = idsParcel(in.stateIds);
    in.byPath = resCtlParcel({});
    in.byPath.extras = std::vector<std::optional<std::string>>{"zdbdebug"};
    for (size_t i = 0; i < std::size(kPaths); ++i) {
        TorqRequestData& d = in.byPath.data.emplace_back();
        d.path = kPaths[i];
        d.value = kPathValues[i];
    }
    in.event = eventParcel(kEventId);
    in.firstAction = eventParcel(kFirstActionId);
    in.lastAction = eventParcel(kLastActionId);
    in.targetLoad = records(kTargetLoadEntries);
    in.gameAdp = records(kGameAdpEntries);

    for (size_t n : kSizes) {
        const std::vector<TorqRequestData> data =
                n == kLongValueBytes ? records(1, std::string(n, 'v')) : records(n);
        in.lists[n] = resources<std::list<Resource>>(data);
        in.vectors[n] = resources<std::vector<Resource>>(data);
        in.parcels[n] = resCtlParcel(data);
    }
    in.listenParcel = idsParcel(in.listenIds);
}

// Holds exactly `n` listening registrations of one id each, none of them the measured one.
void hold(Inputs& in, size_t n) {
    while (in.held.size() < n) {
        std::list<Resource> ids{Resource{kHeldIds + static_cast<int32_t>(in.held.size()), {}}};
        in.held.push_back(torqHalclient::torqResListeningRegister(ids, kTag, in.callback));
    }
    while (in.held.size() > n) {
        torqHalclient::torqResListeningUnRegister(in.held.back());
        in.held.pop_back();
    }
}

// --- Rows ---------------------------------------------------------------------------------------

// One call; false when it did not get the HAL's answer.
using Work = std::function<bool()>;

struct Row {
    std::string label;  // the budget's key for a front-end row, the plot's series for the others
    size_t size;        // list size, registrations held or value bytes; 0: a front-end row
    Work call;
    Work floor;
    Work log = nullptr;  // front-end rows: the log lines the call must write, formatted alone
    // Undoes what the calls did (an output list, a registration); never measured: it runs after
    // each timed call and after each counted batch.
    std::function<void()> between = nullptr;
    // Before the call is measured: the registrations to hold.
    std::function<void()> setup = nullptr;
    // Calls per counted batch, and batches; the cheapest batch counts.
    int calls = 40;
    int batches = 5;
};

// The name of a row's piece in the timings and the callgrind dumps.
std::string key(const Row& r, const char* piece) {
    return r.label + (r.size == 0 ? "" : "/" + std::to_string(r.size)) + "/" + piece;
}

Work requestFloor(const std::shared_ptr<ITorq>& hal, const TorqRequestParcel& parcel) {
    return [hal, &parcel] {
        int32_t handle = -1;
        return hal->request(parcel, &handle).isOk() && handle == kHandle;
    };
}

Work ruleCtlFloor(const std::shared_ptr<ITorq>& hal, int32_t rule,
                  const std::vector<TorqRequestData>& data) {
    return [hal, rule, &data] {
        int32_t result = -1;
        return hal->ruleCtl(rule, 1, data, &result).isOk() && result == kResult;
    };
}

Work releaseFloor(const std::shared_ptr<ITorq>& hal) {
    return [hal] {
        int32_t result = -1;
        return hal->release(kHandle, &result).isOk() && result == kResult;
    };
}

// The name a notification is sent under, built where the call is made. Its length is given so
// that the compiler writes the short string in place whatever else this file holds: otherwise
// how the caller builds its own argument would move with the inlining of unrelated code.
inline std::string notifierName() {
    return std::string("bench", 5);
}

const char* const kTorqTag = "TORQFramework-lib-vendor";
const char* const kZelTag = "[ZEL_CLIENT]";
const char* const kWrapperTag = "[ZEL_CLIENT_WRAPPER]";

// One log line as the library writes it, formatted alone.
#define LOG_LINE(tag, ...)                                       \
    [] {                                                         \
        __android_log_print(ANDROID_LOG_INFO, tag, __VA_ARGS__); \
        return true;                                             \
    }

Work wrapperLog(const std::string& action, int32_t id) {
    return [action, id] {
        __android_log_print(ANDROID_LOG_INFO, kWrapperTag,
                            "[%s] eventId:%s, scene:%s, identity:%s, timeout:%d",
                            "ZelEventAcquireWrapper", action.c_str(), kPackage.c_str(),
                            kIdentity.c_str(), kDuration);
        __android_log_print(ANDROID_LOG_INFO, kZelTag,
                            "ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", id, kPackage.c_str(),
                            kIdentity.c_str());
        return true;
    };
}

Work notifyLog(int src) {
    return [src] {
        __android_log_print(ANDROID_LOG_INFO, kWrapperTag, "[%s] %s, src:%d, type:%d",
                            "ZelNotifyWapper", "bench", src, 1);
        __android_log_print(ANDROID_LOG_INFO, kZelTag, "zelRuleCtl, ruleId:%d, status:%d", src, 1);
        return true;
    };
}

std::vector<Row> allRows(Inputs& in) {
    const std::shared_ptr<ITorq> hal = in.hal;
    std::vector<Row> rows = {
            {"torqResCtlRequest, 3 resources", 0,
             [&in] {
                 return torqHalclient::torqResCtlRequest(kDuration, in.resources, kTag) == kHandle;
             },
             requestFloor(hal, in.resCtl), LOG_LINE(kTorqTag, "torq client torqResCtlRequest")},
            {"torqResStateRequest, 3 ids", 0,
             [&in] {
                 // Returns the size of the output list, which a counted batch leaves to grow.
                 return torqHalclient::torqResStateRequest(in.stateIds, kTag, in.stateOut) >=
                        static_cast<int32_t>(std::size(kResources));
             },
             [hal, &in] {
                 std::vector<TorqRequestData> out;
                 return hal->stateRequest(in.state, &out).isOk() &&
                        out.size() == std::size(kResources);
             },
             [] {
                 __android_log_print(ANDROID_LOG_INFO, kTorqTag, "torq client torqResStateRequest");
                 __android_log_print(ANDROID_LOG_INFO, kTorqTag,
                                     "torq client hal torqResStateRequest");
                 __android_log_print(ANDROID_LOG_INFO, kTorqTag,
                                     "torq client torqResStateRequest size %d", 3);
                 return true;
             },
             // The values handed back are the caller's; emptying the list is not the call's.
             [&in] { in.stateOut.clear(); }},
            {"torq_resctl_request_by_path, 3 paths", 0,
             [&in] {
                 return torqHalclient::torq_resctl_request_by_path(
                                -1, kDuration, in.paths, in.pathValues, -1, 0, kTag) == kHandle;
             },
             requestFloor(hal, in.byPath), LOG_LINE(kTorqTag, "torq client torq_resctl_request")},
            {"torqResCtlRelease", 0,
             [] { return torqHalclient::torqResCtlRelease(kHandle) == kResult; }, releaseFloor(hal),
             LOG_LINE(kTorqTag, "%s", "torq client torqResCtlRelease")},
            {"ZelEventAcquire", 0,
             [] { return ZelEventAcquire(kEventId, kPackage, kIdentity, kDuration, {}) == kHandle; },
             requestFloor(hal, in.event),
             LOG_LINE(kZelTag, "ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", kEventId,
                      kPackage.c_str(), kIdentity.c_str())},
            {"zelRuleCtl, 3 resources", 0,
             [&in] { return zelRuleCtl(130, 1, in.ruleResources) == kResult; },
             ruleCtlFloor(hal, 130, in.resCtl.data),
             LOG_LINE(kZelTag, "zelRuleCtl, ruleId:%d, status:%d", 130, 1)},
            {"ZelRelease", 0,
             [] {
                 ZelRelease(kHandle);
                 return true;  // nothing comes back; the HAL's note shows that it arrived
             },
             releaseFloor(hal), LOG_LINE(kZelTag, "ZelRelease, handle:%d", kHandle)},
            {"ZelEventAcquireWrapper, first action", 0,
             [] {
                 return ZelEventAcquireWrapper(kFirstAction, kPackage, kIdentity, kDuration) ==
                        kHandle;
             },
             requestFloor(hal, in.firstAction), wrapperLog(kFirstAction, kFirstActionId)},
            {"ZelEventAcquireWrapper, last action", 0,
             [] {
                 return ZelEventAcquireWrapper(kLastAction, kPackage, kIdentity, kDuration) ==
                        kHandle;
             },
             requestFloor(hal, in.lastAction), wrapperLog(kLastAction, kLastActionId)},
            {"ZelNotifyWapper, src 130 + data", 0,
             [] { return ZelNotifyWapper(notifierName(), 130, 1, 0, 0, 0, kTargetLoadData) == 0; },
             ruleCtlFloor(hal, 130, in.targetLoad), notifyLog(130)},
            {"ZelNotifyWapper, src 9000 + data", 0,
             [] { return ZelNotifyWapper(notifierName(), 9000, 1, 0, 0, 0, kGameAdpData) == 0; },
             ruleCtlFloor(hal, 9000, in.gameAdp), notifyLog(9000)},
    };

    // Scaling. Enough calls that a count per call is exact, few enough for callgrind on 2 cores.
    auto add = [&rows](Row r) {
        r.calls = r.size < 100 ? 40 : r.size <= 1000 ? 10 : 2;
        r.batches = r.size < 1000 ? 5 : 1;
        rows.push_back(std::move(r));
    };
    auto series = [](const char* call, size_t n) {
        return n == kLongValueBytes ? std::string(call) + ", one 1 MB value" : std::string(call);
    };
    for (size_t n : kSizes) {
        add(Row{series("torqResCtlRequest", n), n,
                [&in, n] {
                    return torqHalclient::torqResCtlRequest(kDuration, in.lists.at(n), kTag) ==
                           kHandle;
                },
                requestFloor(hal, in.parcels.at(n))});
    }
    for (size_t n : kSizes) {
        add(Row{series("zelRuleCtl", n), n,
                [&in, n] { return zelRuleCtl(130, 1, in.vectors.at(n)) == kResult; },
                ruleCtlFloor(hal, 130, in.parcels.at(n).data)});
    }

    // The library refuses a list of ids already registered, so each registration is compared
    // with every one held. One call per batch: the next batch finds the same registrations held.
    for (size_t n : kHeldRegistrations) {
        Row r{"torqResListeningRegister", n,
              [&in] {
                  in.listenHandle =
                          torqHalclient::torqResListeningRegister(in.listenIds, kTag, in.callback);
                  return in.listenHandle > kHandle;
              },
              [hal, &in] {
                  // A new callback object for every registration, as the library makes one.
                  std::shared_ptr<ITorqCallback> callback = ndk::SharedRefBase::make<TorqCallback>();
                  int32_t handle = -1;
                  return hal->listeningRegister(in.listenParcel, callback, &handle).isOk() &&
                         handle > kHandle;
              }};
        r.between = [&in] { torqHalclient::torqResListeningUnRegister(in.listenHandle); };
        r.setup = [&in, n] { hold(in, n); };
        r.calls = 1;
        rows.push_back(r);
    }
    return rows;
}

// Every call must get its answer and send the HAL exactly what its floor sends, in one HAL call;
// otherwise the two would not measure the same request.
bool sendWhatTheirFloorsSend(BenchHal& hal, const std::vector<Row>& rows) {
    bool same = true;
    for (const Row& r : rows) {
        bool callAnswered = false, floorAnswered = false;
        const std::vector<std::string> call = hal.seenDuring(r.call, &callAnswered);
        if (r.between) r.between();
        const std::vector<std::string> floor = hal.seenDuring(r.floor, &floorAnswered);
        if (callAnswered && floorAnswered && call.size() == 1 && call == floor) continue;
        same = false;
        std::cerr << "zel_bench: " << key(r, "call") << (callAnswered ? "" : " (no answer)")
                  << " does not send what its floor" << (floorAnswered ? "" : " (no answer)")
                  << " sends:\n";
        for (const std::string& c : call) std::cerr << "  call:  " << c.substr(0, 400) << "\n";
        for (const std::string& c : floor) std::cerr << "  floor: " << c.substr(0, 400) << "\n";
    }
    return same;
}

// --- Instructions (under callgrind) -------------------------------------------------------------

#if ZEL_HAVE_CALLGRIND_H
// Counts `work` in batches of r.calls calls, each batch dumped as "KEY|calls|allocations".
bool count(const Row& r, const char* piece, const Work& work, const std::function<void()>& between) {
    bool answered = true;
    // Warm up: connect, fill caches and free lists, so that every counted call takes the path it
    // takes in steady use.
    for (int i = 0; i < (r.calls >= 10 ? 3 : 1) && answered; ++i) {
        answered = work();
        if (between) between();
    }
    for (int b = 0; b < r.batches && answered; ++b) {
        const uint64_t before = t_allocations;
        CALLGRIND_ZERO_STATS;
        CALLGRIND_TOGGLE_COLLECT;
        for (int i = 0; i < r.calls && answered; ++i) answered = work();
        CALLGRIND_TOGGLE_COLLECT;
        const uint64_t allocations = t_allocations - before;
        const std::string name =
                key(r, piece) + "|" + std::to_string(r.calls) + "|" + std::to_string(allocations);
        CALLGRIND_DUMP_STATS_AT(name.c_str());
        if (between) between();
    }
    if (!answered) std::cerr << "zel_bench: " << key(r, piece) << " did not get the HAL's answer\n";
    return answered;
}

int measure(std::vector<Row>& rows) {
    if (!RUNNING_ON_VALGRIND) {
        std::cerr << "zel_bench: --measure counts nothing outside callgrind "
                     "(bench/instructions.sh runs it)\n";
        return 2;
    }
    bool answered = true;
    for (Row& r : rows) {
        if (r.setup) r.setup();
        answered = count(r, "call", r.call, r.between) && answered;
        answered = count(r, "floor", r.floor, nullptr) && answered;
        if (r.log) answered = count(r, "log", r.log, nullptr) && answered;
    }
    return answered ? 0 : 2;
}
#else
int measure(std::vector<Row>&) {
    std::cerr << "zel_bench: built without valgrind/callgrind.h; install valgrind\n";
    return 2;
}
#endif

struct Count {
    double instructions = 0;  // per call
    double allocations = 0;   // per call
};

// Adds the dump at `path` to `counts`, by piece, keeping each piece's cheapest batch. A free now
// and then takes a slower path when memory the HAL's thread allocated goes back to its arena while
// that thread holds it; the cheapest batch is the one without such a detour. The allocator's own
// instructions are left out for the same reason; the number of allocations is exact and reported
// beside. The dump is written uncompressed (--compress-strings=no --compress-pos=no).
void readDump(const std::string& path, std::map<std::string, Count>* counts) {
    std::ifstream in(path);
    std::string line, file, name;
    bool afterCalls = false, allocator = false;
    const std::string trigger = "desc: Trigger: Client Request: ";
    double sum = 0;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        if (line[0] >= '0' && line[0] <= '9') {
            // "position cost": a call's inclusive cost right after calls=, else a self cost.
            const size_t space = line.find(' ');
            if (!afterCalls && !allocator && space != std::string::npos) {
                sum += std::strtod(line.c_str() + space, nullptr);
            }
            afterCalls = false;
        } else if (line.rfind("calls=", 0) == 0) {
            afterCalls = true;
        } else if (line.rfind("fl=", 0) == 0) {
            file = line.substr(3);
        } else if (line.rfind("fn=", 0) == 0) {
            allocator = file.find("/malloc/") != std::string::npos;
        } else if (line.rfind(trigger, 0) == 0) {
            name = line.substr(trigger.size());
        }
    }
    std::istringstream fields(name);
    std::string piece, calls, allocations;
    if (!std::getline(fields, piece, '|') || !std::getline(fields, calls, '|') ||
        !std::getline(fields, allocations)) {
        return;  // the dump at exit
    }
    const double n = std::stod(calls);
    auto it = counts->find(piece);
    if (it == counts->end() || sum / n < it->second.instructions) {
        (*counts)[piece] = Count{sum / n, std::stod(allocations) / n};
    }
}

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.0f", std::round(v) + 0.0);  // never "-0"
    return text;
}

std::string fixed(double value, int decimals) {
    std::ostringstream s;
    s << std::fixed << std::setprecision(decimals) << value;
    return s.str();
}

int report(const std::vector<Row>& rows, const std::string& dir, const std::string& budgetPath) {
    std::map<std::string, Count> c;
    const std::string dumps = dir + "/callgrind";
    if (DIR* d = opendir(dumps.c_str())) {
        while (dirent* e = readdir(d)) {
            if (std::string(e->d_name).rfind("callgrind.out", 0) == 0) {
                readDump(dumps + "/" + e->d_name, &c);
            }
        }
        closedir(d);
    }
    std::map<std::string, double> budget;
    std::ifstream budgetFile(budgetPath);
    for (std::string line; std::getline(budgetFile, line);) {
        const size_t tab = line.rfind('\t');
        if (line.empty() || line[0] == '#' || tab == std::string::npos) continue;
        budget[line.substr(0, tab)] = std::strtod(line.c_str() + tab + 1, nullptr);
    }

    int over = 0;
    std::ostringstream scaling;
    std::ofstream data(dir + "/scaling-instructions.dat");
    data << "# series\tsize\tcall\tfloor\town\n";
    std::cout << "Instructions per call on the caller's thread, outside the binder hand-over "
                 "(callgrind)\n\n"
              << "| Call | Call | Floor | Own | Log lines | Own - log | Budget | Allocs own |\n"
              << "|---|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const Row& r : rows) {
        const Count& call = c.at(key(r, "call"));
        const Count& floor = c.at(key(r, "floor"));
        const double own = call.instructions - floor.instructions;
        const std::string allocations = number(call.allocations - floor.allocations);
        if (r.size != 0) {
            scaling << "| " << r.label << " | " << r.size << " | " << number(call.instructions)
                    << " | " << number(floor.instructions) << " | " << number(own) << " | "
                    << fixed(own / static_cast<double>(r.size), 1) << " | " << allocations
                    << " |\n";
            data << r.label << '\t' << r.size << '\t' << number(call.instructions) << '\t'
                 << number(floor.instructions) << '\t' << number(own) << '\n';
            continue;
        }
        const double rest = own - c.at(key(r, "log")).instructions;
        auto b = budget.find(r.label);
        // Every row needs a budget.
        const bool within = b != budget.end() && std::round(rest) <= b->second;
        over += within ? 0 : 1;
        std::cout << "| " << r.label << " | " << number(call.instructions) << " | "
                  << number(floor.instructions) << " | " << number(own) << " | "
                  << number(own - rest) << " | " << number(rest) << " | "
                  << (b == budget.end() ? "none" : number(b->second)) << (within ? "" : " **over**")
                  << " | " << allocations << " |\n";
    }
    std::cout << "\nScaling: instructions per call against list size (registrations held, value "
                 "bytes)\n\n"
              << "| Call | Size | Call | Floor | Own | Own per item | Allocs own |\n"
              << "|---|---:|---:|---:|---:|---:|---:|\n"
              << scaling.str() << "\n"
              << (over == 0 ? "every row within its budget"
                            : std::to_string(over) + " row(s) over budget (or without one)")
              << " (" << budgetPath << ")\n";
    return over == 0 ? 0 : 1;
}

// --- Timings (Google Benchmark) -----------------------------------------------------------------

using Clock = std::chrono::steady_clock;

double nanosSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

double g_clockNs = 0;  // two back-to-back clock reads, taken off every timed call

// Times every call on its own and reports the run's median call. On a shared machine some calls
// wait for the scheduler (microseconds to wake a thread, tens when the caller and the HAL's
// thread share a CPU); a mean would mix those in, in proportions that change from run to run.
void timeEach(benchmark::State& state, const Work& work, const std::function<void()>& between) {
    std::vector<double> ns;
    ns.reserve(static_cast<size_t>(state.max_iterations));
    bool answered = true;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        answered = work() && answered;
        ns.push_back(nanosSince(start));
        if (between) between();
    }
    if (!answered) state.SkipWithError("a call did not get the HAL's answer");
    std::nth_element(ns.begin(), ns.begin() + ns.size() / 2, ns.end());
    state.counters["median_ns"] = ns[ns.size() / 2] - g_clockNs;
}

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

// The least any cross-thread request and reply can cost here: two threads passing a turn back
// and forth through one atomic word while both spin (odd: a request waits; even: replied).
void timeHandoff(benchmark::State& state) {
    std::atomic<uint64_t> turn{0};
    std::atomic<bool> stop{false};
    std::thread partner([&] {
        while (!stop.load(std::memory_order_relaxed)) {
            const uint64_t now = turn.load(std::memory_order_acquire);
            if (now % 2 == 1) turn.store(now + 1, std::memory_order_release);
            cpuRelax();
        }
    });
    uint64_t next = 1;
    const Work pingPong = [&] {
        turn.store(next, std::memory_order_release);
        while (turn.load(std::memory_order_acquire) != next + 1) cpuRelax();
        next += 2;
        return true;
    };
    timeEach(state, pingPong, nullptr);
    stop = true;
    partner.join();
}

void countCalls(benchmark::State& state, const Work& work) {
    bool answered = true;
    for (auto _ : state) answered = work() && answered;
    if (!answered) state.SkipWithError("a call did not get the HAL's answer");
    state.SetItemsProcessed(state.iterations());
}

// A shared machine only ever slows a repetition down: the best one is the least disturbed.
double fastest(const std::vector<double>& v) {
    return *std::min_element(v.begin(), v.end());
}
double most(const std::vector<double>& v) {
    return *std::max_element(v.begin(), v.end());
}

// Keeps each benchmark's best repetition (the single run with one) by name, and passes
// everything on to the console.
class Collector : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, double> values;
    bool broken = false;

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            broken = broken || run.error_occurred;
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "best") continue;
            for (const char* counter : {"median_ns", "items_per_second"}) {
                auto it = run.counters.find(counter);
                if (it == run.counters.end()) continue;
                values[run.run_name.str()] = it->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

std::string loadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string one, five, fifteen;
    in >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

int timeAll(std::vector<Row>& rows, const std::string& dir) {
    const std::string loadBefore = loadAverage();
    {
        std::vector<double> ns;
        for (int i = 0; i < 100000; ++i) ns.push_back(nanosSince(Clock::now()));
        std::nth_element(ns.begin(), ns.begin() + ns.size() / 2, ns.end());
        g_clockNs = ns[ns.size() / 2];
    }
    for (Row& r : rows) {
        benchmark::RegisterBenchmark(key(r, "call").c_str(), [&r](benchmark::State& state) {
            if (r.setup) r.setup();
            timeEach(state, r.call, r.between);
        })->ComputeStatistics("best", fastest);
        benchmark::RegisterBenchmark(key(r, "floor").c_str(), timeEach, r.floor, nullptr)
                ->ComputeStatistics("best", fastest);
    }
    benchmark::RegisterBenchmark("handoff", timeHandoff)->ComputeStatistics("best", fastest);
    // Both front ends take their interface lock shared for the whole call: their callers on
    // several threads must scale as the bare transaction does.
    auto row = [&rows](const std::string& label) {
        return *std::find_if(rows.begin(), rows.end(),
                             [&](const Row& r) { return r.label == label; });
    };
    const std::vector<std::pair<std::string, Work>> series = {
            {"ITorq::request (floor)", row("ZelEventAcquire").floor},
            {"ZelEventAcquire (flat API)", row("ZelEventAcquire").call},
            {"torqResCtlRequest (torqHalclient)", row("torqResCtlRequest, 3 resources").call}};
    for (const auto& [name, work] : series) {
        benchmark::RegisterBenchmark(("throughput/" + name).c_str(), countCalls, work)
                ->ThreadRange(1, 8)  // 1, 2, 4, 8
                ->UseRealTime()
                ->ComputeStatistics("best", most);
    }
    Collector collector;
    collector.SetOutputStream(&std::cerr);
    collector.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&collector);
    auto us = [&collector](const std::string& name) { return collector.values[name] / 1e3; };

    std::ostringstream scaling;
    std::ofstream times(dir.empty() ? "/dev/null" : dir + "/scaling-times.dat");
    times << "# series\tsize\tcall_us\tfloor_us\n";
    std::cout << "Median call in microseconds (of the best repetition), next to its floor\n\n"
              << "| Call | Call us | Floor us | Ratio |\n|---|---:|---:|---:|\n";
    for (const Row& r : rows) {
        const double call = us(key(r, "call")), floor = us(key(r, "floor"));
        if (r.size == 0) {
            std::cout << "| " << r.label << " | " << fixed(call, 3) << " | " << fixed(floor, 3)
                      << " | " << fixed(call / floor, 3) << " |\n";
            continue;
        }
        scaling << "| " << r.label << " | " << r.size << " | " << fixed(call, 2) << " | "
                << fixed(floor, 2) << " | " << fixed(call - floor, 2) << " | "
                << fixed(call / floor, 3) << " |\n";
        times << r.label << '\t' << r.size << '\t' << call << '\t' << floor << '\n';
    }
    const double release = us(key(row("torqResCtlRelease"), "floor"));
    std::cout << "\nThe bare transaction (ITorq::release, " << fixed(release, 3) << " us) is "
              << fixed(release / us("handoff"), 2) << " thread handoffs ("
              << fixed(us("handoff"), 3)
              << " us: two threads passing a turn through one atomic word, both spinning)\n"
              << "\nScaling: median call in microseconds (of the best repetition)\n\n"
              << "| Call | Size | Call us | Floor us | Call - floor us | Ratio |\n"
              << "|---|---:|---:|---:|---:|---:|\n"
              << scaling.str();

    std::ofstream throughput(dir.empty() ? "/dev/null" : dir + "/throughput.dat");
    throughput << "threads";
    std::cout << "\nCalls per second, all callers together (best repetition)\n\n| Threads |";
    for (const auto& s : series) {
        throughput << '\t' << s.first;
        std::cout << " " << s.first << " |";
    }
    throughput << '\n';
    std::cout << "\n|---:|---:|---:|---:|\n";
    for (int threads = 1; threads <= 8; threads *= 2) {
        throughput << threads;
        std::cout << "| " << threads << " |";
        for (const auto& s : series) {
            auto rate = [&](int n) {
                return collector
                        .values["throughput/" + s.first + "/real_time/threads:" + std::to_string(n)];
            };
            throughput << '\t' << number(rate(threads));
            std::cout << " " << number(rate(threads)) << " (" << fixed(rate(threads) / rate(1), 2)
                      << "x) |";
        }
        throughput << '\n';
        std::cout << "\n";
    }
    std::cout << "\nmachine: " << std::thread::hardware_concurrency() << " CPUs; load average "
              << loadBefore << " before, " << loadAverage() << " after\n";
    return collector.broken ? 2 : 0;
}

void silentLogger(const __android_logger_data*, const char*) {}

}  // namespace
}  // namespace zel_bench

int main(int argc, char** argv) {
    using namespace zel_bench;
    bool quick = false, measuring = false;
    std::string dir, reportDir, budget;
    std::vector<char*> benchmarkArgs = {argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--quick") {
            quick = true;
        } else if (arg == "--measure") {
            measuring = true;
        } else if (arg == "--report" && i + 1 < argc) {
            reportDir = argv[++i];
        } else if (arg == "--budget" && i + 1 < argc) {
            budget = argv[++i];
        } else if (arg.rfind("--", 0) == 0) {
            benchmarkArgs.push_back(argv[i]);
        } else {
            dir = arg;
        }
    }
    Inputs inputs;
    if (!reportDir.empty()) {
        build(inputs);
        try {
            return report(allRows(inputs), reportDir, budget);
        } catch (const std::out_of_range&) {
            std::cerr << "zel_bench: counts missing in " << reportDir << "/callgrind\n";
            return 2;
        }
    }
    // Repetitions in random order give every case the same chances of a quiet spell, the call and
    // its floor alike. Flags given on the command line win.
    std::vector<std::string> defaults = {"--benchmark_min_time=0.025", "--benchmark_repetitions=20",
                                         "--benchmark_enable_random_interleaving=true",
                                         "--benchmark_display_aggregates_only=true"};
    if (quick) defaults = {"--benchmark_min_time=0.002", "--benchmark_repetitions=1"};
    for (std::string& d : defaults) benchmarkArgs.insert(benchmarkArgs.begin() + 1, d.data());
    int benchmarkArgc = static_cast<int>(benchmarkArgs.size());
    benchmark::Initialize(&benchmarkArgc, benchmarkArgs.data());
    if (benchmark::ReportUnrecognizedArguments(benchmarkArgc, benchmarkArgs.data())) return 2;

    // The lines are formatted as on a device (INFO and above), then dropped.
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(silentLogger);
    int status = 2;
    {
        BenchHal hal(records(kResources));
        inputs.hal = BenchHal::connectProxy();
        if (inputs.hal == nullptr) {
            std::cerr << "zel_bench: no HAL proxy\n";
            return 2;
        }
        build(inputs);
        std::vector<Row> rows = allRows(inputs);
        if (sendWhatTheirFloorsSend(hal, rows)) {
            status = measuring ? measure(rows) : timeAll(rows, dir);
        }
    }
    // Every process but this one goes; death notices reach the front ends before exit.
    binder_host::reset();
    benchmark::Shutdown();
    return status;
}
