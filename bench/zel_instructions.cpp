// The library's own work, counted in instructions: a measure that does not move with the machine.
//
// Every front-end call is compared with its floor, the same ITorq method called directly on a
// proxy with the same request. Both are run under callgrind, and only the calling thread's
// instructions outside AIBinder_transact are counted (the run script passes
// --collect-atstart=no --toggle-collect=AIBinder_transact; this program switches collection on
// around the measured calls). What is left is deterministic: building the request, marshalling
// it, reading the answer, the log lines, the lock; the hand-over to the HAL's thread, whose path
// depends on the scheduler, is not counted, and it is the same for a call and its floor anyway.
//
//   own = call - floor
//   log = the instructions of formatting the log lines the call must write, measured alone
//   own - log is what the budget (bench/instruction-budget.txt) limits.
//
// Usage:
//   valgrind --tool=callgrind ... zel_instructions --measure DIR
//       runs every piece, dumps callgrind's counts once per piece into DIR and writes
//       DIR/pieces.txt (iterations and allocations of each piece);
//   zel_instructions --report DIR [--budget FILE] [--scaling-data FILE]
//       reads them back, prints the tables and exits 1 when a row is over its budget;
//   zel_instructions --time DIR
//       (without valgrind) times the scaling rows and the calls per second of 1 to 8 callers,
//       prints the tables and writes DIR/scaling-times.dat and DIR/throughput.dat for the plots.
// Exit status 2: something broke (a call did not get the HAL's answer, a dump is missing).

#include <android/log.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>

#include <dirent.h>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BenchHal.h"
#include "Rows.h"
#include "ZelClient.h"
#include "ZelWrapper.h"
#include "torqHalclient.h"
#include "zel.h"

namespace zel_instructions {
namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using zel_bench::BenchHal;
using zel_bench::ITorq;
using zel_bench::kDuration;
using zel_bench::kEventId;
using zel_bench::kFirstAction;
using zel_bench::kFirstActionId;
using zel_bench::kHandle;
using zel_bench::kIdentity;
using zel_bench::kLastAction;
using zel_bench::kLastActionId;
using zel_bench::kPackage;
using zel_bench::kResult;
using zel_bench::kTag;
using zel_bench::resCtlParcel;
using zel_bench::TorqRequestData;
using zel_bench::TorqRequestParcel;

// --- Workloads: the rows of Rows.h, shared with zel_bench, and the scaling inputs -------------

// Lists of `count` resources with distinct ids; each value is `value`, or the resource's index
// in decimal when `value` is empty.
std::string valueOf(size_t i, const std::string& value) {
    return value.empty() ? std::to_string(1000 + i) : value;
}
std::list<ZelClient::Resource> resourceList(size_t count, const std::string& value = "") {
    std::list<ZelClient::Resource> list;
    for (size_t i = 0; i < count; ++i) {
        list.push_back({0x01000000 + static_cast<int32_t>(i), valueOf(i, value)});
    }
    return list;
}
std::vector<ZelClient::Resource> resourceVector(size_t count, const std::string& value = "") {
    std::vector<ZelClient::Resource> list;
    for (size_t i = 0; i < count; ++i) {
        list.push_back({0x01000000 + static_cast<int32_t>(i), valueOf(i, value)});
    }
    return list;
}
std::vector<TorqRequestData> recordList(size_t count, const std::string& value = "") {
    std::vector<TorqRequestData> data(count);
    for (size_t i = 0; i < count; ++i) {
        data[i].id = 0x01000000 + static_cast<int32_t>(i);
        data[i].value = valueOf(i, value);
    }
    return data;
}

// --- Pieces: one measured piece of work each ---------------------------------------------------

// One call; false when it did not get the HAL's answer.
using Work = std::function<bool()>;

struct Piece {
    std::string name;
    Work work;
    int iterations = 200;
    // Caller's work between two calls that belongs to neither (emptying an output list).
    std::function<void()> between;
    // Run before the first measured call (not counted): registrations to hold, for example.
    std::function<void()> setup;
};

// A row of the instruction table: a front-end row of Rows.h and the log lines its call must
// write (a piece of its own, named after the call).
struct Row {
    std::string label;
    std::string call;
    std::string floor;
    std::string log;  // piece name
};

// A row of the scaling table: the same call and floor over growing lists.
struct ScalingRow {
    std::string series;  // plot series
    double size;         // list size, registrations held, or value bytes
    std::string call;
    std::string floor;
};

class TorqCallback : public BnTorqCallback {
  public:
    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

class Callback : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource>) override {}
};

bool ok(const ndk::ScopedAStatus& status) {
    return status.isOk();
}

// The inputs every piece refers to; they live as long as the pieces.
struct Inputs {
    std::shared_ptr<ITorq> hal;
    zel_bench::Floors floors;
    zel_bench::Inputs frontEnd;
    // Scaling inputs by size.
    std::map<size_t, std::list<ZelClient::Resource>> lists;
    std::map<size_t, std::vector<ZelClient::Resource>> vectors;
    std::map<size_t, TorqRequestParcel> parcels;
    std::map<size_t, std::vector<TorqRequestData>> ruleRecords;
    std::list<ZelClient::Resource> longValueList;
    std::vector<ZelClient::Resource> longValueVector;
    TorqRequestParcel longValueParcel;
    std::vector<TorqRequestData> longValueRecords;
    std::shared_ptr<IClientCallback> callback = std::make_shared<Callback>();
    int32_t nextListeningId = 0x02000000;
};

constexpr size_t kListSizes[] = {1, 10, 100, 1000, 100000};
constexpr size_t kHeldRegistrations[] = {1, 10, 100, 1000};
constexpr size_t kLongValueBytes = 1 << 20;
constexpr int kBatches = 5;

// Enough calls that a per-call count is exact, few enough for valgrind on 2 cores.
int iterationsFor(size_t listSize) {
    if (listSize >= 100000) return 2;
    if (listSize >= 1000) return 10;
    if (listSize >= 100) return 50;
    return 200;
}

std::string sized(const std::string& base, size_t n) {
    return base + "/" + std::to_string(n);
}

std::vector<Piece> buildPieces(Inputs& in) {
    std::vector<Piece> pieces;
    auto add = [&](std::string name, Work work, int iterations = 200) {
        pieces.push_back(Piece{std::move(name), std::move(work), iterations, nullptr, nullptr});
        return &pieces.back();
    };
    std::shared_ptr<ITorq> hal = in.hal;
    auto request = [hal](const TorqRequestParcel& parcel) {
        return zel_bench::requestFloor(hal, parcel);
    };
    auto ruleCtl = [hal](int32_t rule, int32_t status, const std::vector<TorqRequestData>& data) {
        return zel_bench::ruleCtlFloor(hal, rule, status, data);
    };

    // The floors and the front ends.
    for (zel_bench::NamedCall& c : zel_bench::floorCalls(hal, in.floors)) {
        add(c.name, std::move(c.call))->between = std::move(c.between);
    }
    const std::vector<zel_bench::Row> frontEnd = zel_bench::frontEndRows(in.frontEnd);
    for (const zel_bench::Row& r : frontEnd)
        add(r.call.name, r.call.call)->between = r.call.between;

    // The log lines each call must write, formatted alone with the same texts and arguments;
    // "log/" and the call's name.
    auto info = [](const char* tag, const char* text) {
        __android_log_print(ANDROID_LOG_INFO, tag, "%s", text);
    };
    const char* torqTag = "TORQFramework-lib-vendor";
    const char* zelTag = "[ZEL_CLIENT]";
    const char* wrapperTag = "[ZEL_CLIENT_WRAPPER]";
    add("log/torqResCtlRequest/3_resources", [=] {
        __android_log_print(ANDROID_LOG_INFO, torqTag, "torq client torqResCtlRequest");
        return true;
    });
    add("log/torqResStateRequest/3_ids", [=] {
        __android_log_print(ANDROID_LOG_INFO, torqTag, "torq client torqResStateRequest");
        __android_log_print(ANDROID_LOG_INFO, torqTag, "torq client hal torqResStateRequest");
        __android_log_print(ANDROID_LOG_INFO, torqTag, "torq client torqResStateRequest size %d", 3);
        return true;
    });
    add("log/torq_resctl_request_by_path/3_paths", [=] {
        __android_log_print(ANDROID_LOG_INFO, torqTag, "torq client torq_resctl_request");
        return true;
    });
    add("log/torqResCtlRelease", [=] {
        info(torqTag, "torq client torqResCtlRelease");
        return true;
    });
    add("log/ZelEventAcquire/event_11", [=] {
        __android_log_print(ANDROID_LOG_INFO, zelTag,
                            "ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", kEventId,
                            kPackage.c_str(), kIdentity.c_str());
        return true;
    });
    add("log/zelRuleCtl/3_resources", [=] {
        __android_log_print(ANDROID_LOG_INFO, zelTag, "zelRuleCtl, ruleId:%d, status:%d", 130, 1);
        return true;
    });
    add("log/ZelRelease", [=] {
        __android_log_print(ANDROID_LOG_INFO, zelTag, "ZelRelease, handle:%d", kHandle);
        return true;
    });
    auto wrapperLines = [=](const std::string& action, int32_t id) {
        return [=] {
            __android_log_print(ANDROID_LOG_INFO, wrapperTag,
                                "[%s] eventId:%s, scene:%s, identity:%s, timeout:%d",
                                "ZelEventAcquireWrapper", action.c_str(), kPackage.c_str(),
                                kIdentity.c_str(), kDuration);
            __android_log_print(ANDROID_LOG_INFO, zelTag,
                                "ZelEventAcquire, cmdid:%d, pkg:%s, identity:%s", id,
                                kPackage.c_str(), kIdentity.c_str());
            return true;
        };
    };
    add("log/ZelEventAcquireWrapper/first_action", wrapperLines(kFirstAction, kFirstActionId));
    add("log/ZelEventAcquireWrapper/last_action", wrapperLines(kLastAction, kLastActionId));
    auto notifyLines = [=](int src) {
        return [=] {
            __android_log_print(ANDROID_LOG_INFO, wrapperTag, "[%s] %s, src:%d, type:%d",
                                "ZelNotifyWapper", "bench", src, 1);
            __android_log_print(ANDROID_LOG_INFO, zelTag, "zelRuleCtl, ruleId:%d, status:%d", src,
                                1);
            return true;
        };
    };
    add("log/ZelNotifyWapper/src_130", notifyLines(130));
    add("log/ZelNotifyWapper/src_9000", notifyLines(9000));

    // Scaling: list sizes.
    for (size_t n : kListSizes) {
        const int iterations = iterationsFor(n);
        add(sized("ITorq::request/resctl", n), request(in.parcels.at(n)), iterations);
        add(
                sized("torqResCtlRequest", n),
                [&in, n] {
                    return torqHalclient::torqResCtlRequest(kDuration, in.lists.at(n), kTag) ==
                           kHandle;
                },
                iterations);
        add(sized("ITorq::ruleCtl/rule", n), ruleCtl(130, 1, in.ruleRecords.at(n)), iterations);
        add(
                sized("zelRuleCtl", n),
                [&in, n] { return zelRuleCtl(130, 1, in.vectors.at(n)) == kResult; }, iterations);
    }
    // One value of 1 MB.
    add("ITorq::request/resctl/1MB", request(in.longValueParcel), 4);
    add(
            "torqResCtlRequest/1MB",
            [&in] {
                return torqHalclient::torqResCtlRequest(kDuration, in.longValueList, kTag) ==
                       kHandle;
            },
            4);
    add("ITorq::ruleCtl/rule/1MB", ruleCtl(130, 1, in.longValueRecords), 4);
    add(
            "zelRuleCtl/1MB", [&in] { return zelRuleCtl(130, 1, in.longValueVector) == kResult; },
            4);

    // Scaling: listening registrations already held. Each measured call registers a list of one
    // id no registration has; the registrations are never taken back (the bench HAL gives every
    // one the same handle), so the pieces run in growing order and top up what is held.
    auto listeningIds = [&in] {
        std::list<ZelClient::Resource> ids;
        ids.push_back({in.nextListeningId++, std::nullopt});
        return ids;
    };
    auto held = std::make_shared<size_t>(0);
    for (size_t n : kHeldRegistrations) {
        constexpr int kRegistrations = 10;
        Piece* p = add(
                sized("torqResListeningRegister", n),
                [&in, listeningIds, held] {
                    CALLGRIND_TOGGLE_COLLECT;  // building the caller's list is not the call
                    std::list<ZelClient::Resource> ids = listeningIds();
                    CALLGRIND_TOGGLE_COLLECT;
                    const bool answered = torqHalclient::torqResListeningRegister(
                                                  ids, kTag, in.callback) == kHandle;
                    ++*held;
                    return answered;
                },
                kRegistrations);
        // The measured calls add registrations too: hold n when the first one is counted.
        p->setup = [&in, listeningIds, held, n] {
            while (*held < n) {
                std::list<ZelClient::Resource> ids = listeningIds();
                torqHalclient::torqResListeningRegister(ids, kTag, in.callback);
                ++*held;
            }
        };
        add(
                sized("ITorq::listeningRegister", n),
                [&in, hal] {
                    // The request is built beforehand, as for every floor; the callback object
                    // is new for every registration, as the library's is.
                    CALLGRIND_TOGGLE_COLLECT;
                    TorqRequestParcel parcel;
                    parcel.data.emplace_back().id = in.nextListeningId++;
                    parcel.tag = kTag;
                    CALLGRIND_TOGGLE_COLLECT;
                    std::shared_ptr<ITorqCallback> callback =
                            ndk::SharedRefBase::make<TorqCallback>();
                    int32_t handle = -1;
                    return ok(hal->listeningRegister(parcel, callback, &handle)) &&
                           handle == kHandle;
                },
                kRegistrations);
    }
    return pieces;
}

Inputs buildInputs(std::shared_ptr<ITorq> hal) {
    Inputs in;
    in.hal = std::move(hal);
    in.floors = zel_bench::buildFloors();
    in.frontEnd = zel_bench::buildInputs();
    for (size_t n : kListSizes) {
        in.lists[n] = resourceList(n);
        in.vectors[n] = resourceVector(n);
        in.parcels[n] = resCtlParcel(recordList(n));
        in.ruleRecords[n] = recordList(n);
    }
    const std::string longValue(kLongValueBytes, 'v');
    in.longValueList = resourceList(1, longValue);
    in.longValueVector = resourceVector(1, longValue);
    in.longValueParcel = resCtlParcel(recordList(1, longValue));
    in.longValueRecords = recordList(1, longValue);
    return in;
}

std::vector<Row> rows() {
    zel_bench::Inputs unused;  // the calls are not made here, only their names read
    std::vector<Row> out;
    for (const zel_bench::Row& r : zel_bench::frontEndRows(unused)) {
        out.push_back({r.label, r.call.name, r.floor, "log/" + r.call.name});
    }
    return out;
}

std::vector<ScalingRow> scalingRows() {
    std::vector<ScalingRow> out;
    for (size_t n : kListSizes) {
        out.push_back({"torqResCtlRequest", static_cast<double>(n), sized("torqResCtlRequest", n),
                       sized("ITorq::request/resctl", n)});
    }
    for (size_t n : kListSizes) {
        out.push_back({"zelRuleCtl", static_cast<double>(n), sized("zelRuleCtl", n),
                       sized("ITorq::ruleCtl/rule", n)});
    }
    for (size_t n : kHeldRegistrations) {
        out.push_back({"torqResListeningRegister", static_cast<double>(n),
                       sized("torqResListeningRegister", n), sized("ITorq::listeningRegister", n)});
    }
    out.push_back({"torqResCtlRequest, one 1 MB value", static_cast<double>(kLongValueBytes),
                   "torqResCtlRequest/1MB", "ITorq::request/resctl/1MB"});
    out.push_back({"zelRuleCtl, one 1 MB value", static_cast<double>(kLongValueBytes),
                   "zelRuleCtl/1MB", "ITorq::ruleCtl/rule/1MB"});
    return out;
}

// --- Measuring (under callgrind) ---------------------------------------------------------------

void silentLogger(const __android_logger_data*, const char*) {}

int measure(const std::string& dir) {
    if (!RUNNING_ON_VALGRIND) {
        std::cerr << "zel_instructions: --measure counts nothing outside callgrind (see "
                     "bench/instructions.sh)\n";
        return 2;
    }
    // Formatted as on a device (INFO and above), then dropped.
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(silentLogger);

    int status = 0;
    {
        BenchHal hal(zel_bench::stateAnswer());
        std::shared_ptr<ITorq> proxy = zel_bench::connectProxy();
        if (proxy == nullptr) {
            std::cerr << "zel_instructions: no HAL proxy\n";
            return 2;
        }
        Inputs inputs = buildInputs(proxy);
        std::vector<Piece> pieces = buildPieces(inputs);
        std::ofstream out(dir + "/pieces.txt");
        for (Piece& p : pieces) {
            if (p.setup) p.setup();
            // Warm up: connect, fill caches and free lists, so every counted call takes the
            // path it takes in steady use.
            bool answered = true;
            const int warmups = p.iterations >= 10 ? 3 : 1;
            for (int i = 0; i < warmups && answered; ++i) {
                answered = p.work();
                if (p.between) p.between();
            }
            // A few batches: the report keeps the cheapest. Now and then a free takes a
            // slower path when memory the HAL's thread allocated goes back to its arena while
            // that thread holds the arena; the cheapest batch is the one without such a detour.
            const int batches = p.iterations >= kBatches * 10 ? kBatches : 1;
            const int perBatch = p.iterations / batches;
            const uint64_t allocationsBefore = zel_bench::allocationsOnThisThread();
            for (int b = 0; b < batches; ++b) {
                CALLGRIND_ZERO_STATS;
                CALLGRIND_TOGGLE_COLLECT;
                for (int i = 0; i < perBatch && answered; ++i) {
                    answered = p.work();
                    if (p.between) {
                        CALLGRIND_TOGGLE_COLLECT;
                        p.between();
                        CALLGRIND_TOGGLE_COLLECT;
                    }
                }
                CALLGRIND_TOGGLE_COLLECT;
                const std::string dump = p.name + "#" + std::to_string(b);
                CALLGRIND_DUMP_STATS_AT(dump.c_str());
            }
            const uint64_t allocations = zel_bench::allocationsOnThisThread() - allocationsBefore;
            if (!answered) {
                std::cerr << "zel_instructions: " << p.name << " did not get the HAL's answer\n";
                status = 2;
            }
            out << p.name << '\t' << perBatch << '\t' << batches << '\t'
                << static_cast<double>(allocations) / (perBatch * batches) << '\n';
        }
    }
    binder_host::reset();
    return status;
}

// --- Reporting ---------------------------------------------------------------------------------

struct Counted {
    double instructions = 0;  // per call
    double allocations = 0;   // per call
};

// The instructions of a callgrind dump (written with --compress-strings=no --compress-pos=no)
// and the name it was dumped as. The heap allocator's own instructions are left out: how long a
// malloc or free takes depends on what the HAL's threads did to the shared heap meanwhile, which
// the scheduler decides. The number of allocations, which does not depend on it, is reported
// beside.
bool readDump(const std::string& path, std::string* name, double* total) {
    std::ifstream in(path);
    std::string line;
    bool haveName = false, afterCalls = false, allocator = false;
    const std::string trigger = "desc: Trigger: Client Request: ";
    double sum = 0;
    std::string file;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        const char first = line[0];
        if (first >= '0' && first <= '9') {
            // "position cost": a call's inclusive cost when it follows calls=, else self cost.
            if (!afterCalls && !allocator) {
                const size_t space = line.find(' ');
                if (space != std::string::npos) sum += std::strtod(line.c_str() + space, nullptr);
            }
            afterCalls = false;
        } else if (line.rfind("calls=", 0) == 0) {
            afterCalls = true;
        } else if (line.rfind("fl=", 0) == 0) {
            file = line.substr(3);
        } else if (line.rfind("fn=", 0) == 0) {
            allocator = file.find("/malloc/") != std::string::npos;
        } else if (line.rfind(trigger, 0) == 0) {
            *name = line.substr(trigger.size());
            haveName = true;
        }
    }
    *total = sum;
    return haveName;
}

bool readCounts(const std::string& dir, std::map<std::string, Counted>* counted) {
    std::map<std::string, double> totals;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return false;
    while (dirent* e = readdir(d)) {
        const std::string file = e->d_name;
        if (file.rfind("callgrind.out", 0) != 0) continue;
        std::string name;
        double total = 0;
        if (!readDump(dir + "/" + file, &name, &total)) continue;
        // Batches are dumped as NAME#k; the cheapest one counts.
        name = name.substr(0, name.rfind('#'));
        auto it = totals.find(name);
        if (it == totals.end() || total < it->second) totals[name] = total;
    }
    closedir(d);
    std::ifstream pieces(dir + "/pieces.txt");
    std::string line;
    bool ok = true;
    while (std::getline(pieces, line)) {
        std::istringstream fields(line);
        std::string name;
        double iterations = 0, batches = 0, allocations = 0;
        std::getline(fields, name, '\t');
        fields >> iterations >> batches >> allocations;
        auto it = totals.find(name);
        if (it == totals.end() || iterations <= 0) {
            std::cerr << "zel_instructions: no count for " << name << "\n";
            ok = false;
            continue;
        }
        (*counted)[name] = Counted{it->second / iterations, allocations};
    }
    return ok && !counted->empty();
}

std::map<std::string, double> readBudget(const std::string& path) {
    std::map<std::string, double> budget;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const size_t tab = line.rfind('\t');
        if (tab == std::string::npos) continue;
        budget[line.substr(0, tab)] = std::strtod(line.c_str() + tab + 1, nullptr);
    }
    return budget;
}

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.0f", std::round(v) + 0.0);  // never "-0"
    return text;
}

int report(const std::string& dir, const std::string& budgetPath,
           const std::string& scalingDataPath) {
    std::map<std::string, Counted> c;
    if (!readCounts(dir, &c)) return 2;
    const std::map<std::string, double> budget =
            budgetPath.empty() ? std::map<std::string, double>{} : readBudget(budgetPath);

    int over = 0;
    std::cout << "Instructions per call on the caller's thread, outside the binder hand-over "
                 "(callgrind)\n\n"
              << "| Call | Call | Floor | Own | Log lines | Own - log | Budget | Allocs own |\n"
              << "|---|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const Row& r : rows()) {
        const Counted& call = c.at(r.call);
        const Counted& floor = c.at(r.floor);
        const double own = call.instructions - floor.instructions;
        const double log = r.log.empty() ? 0 : c.at(r.log).instructions;
        const double rest = own - log;
        std::string limit = "-";
        auto b = budget.find(r.label);
        if (b != budget.end()) {
            limit = number(b->second);
            if (std::round(rest) > b->second) {
                limit += " **over**";
                ++over;
            }
        } else if (!budgetPath.empty()) {
            limit = "none";
            ++over;  // every row must have a budget
        }
        std::cout << "| " << r.label << " | " << number(call.instructions) << " | "
                  << number(floor.instructions) << " | " << number(own) << " | " << number(log)
                  << " | " << number(rest) << " | " << limit << " | "
                  << number(call.allocations - floor.allocations) << " |\n";
    }

    std::cout << "\nScaling: instructions per call against list size (registrations held, value "
                 "bytes)\n\n"
              << "| Call | Size | Call | Floor | Own | Own per item | Allocs own |\n"
              << "|---|---:|---:|---:|---:|---:|---:|\n";
    std::ofstream data;
    if (!scalingDataPath.empty()) {
        data.open(scalingDataPath);
        data << "# series\tsize\tcall\tfloor\town\n";
    }
    for (const ScalingRow& r : scalingRows()) {
        const Counted& call = c.at(r.call);
        const Counted& floor = c.at(r.floor);
        const double own = call.instructions - floor.instructions;
        std::cout << "| " << r.series << " | " << number(r.size) << " | "
                  << number(call.instructions) << " | " << number(floor.instructions) << " | "
                  << number(own) << " | " << std::fixed << std::setprecision(1) << own / r.size
                  << std::defaultfloat << " | " << number(call.allocations - floor.allocations)
                  << " |\n";
        if (data.is_open()) {
            data << r.series << '\t' << number(r.size) << '\t' << number(call.instructions) << '\t'
                 << number(floor.instructions) << '\t' << number(own) << '\n';
        }
    }
    if (!budgetPath.empty()) {
        std::cout << "\n"
                  << (over == 0 ? "every row within its budget"
                                : std::to_string(over) + " row(s) over budget (or without one)")
                  << " (" << budgetPath << ")\n";
    }
    return over == 0 ? 0 : 1;
}

// --- Timing the scaling rows and the throughput (no valgrind) ----------------------------------

using Clock = std::chrono::steady_clock;

double nanosSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// Median time of one call in a batch of `calls` calls of a piece, in microseconds.
double batchMedianMicros(Piece& p, int calls, bool* answered) {
    std::vector<double> ns;
    ns.reserve(calls);
    for (int i = 0; i < calls && *answered; ++i) {
        const Clock::time_point start = Clock::now();
        *answered = p.work();
        ns.push_back(nanosSince(start));
        if (p.between) p.between();
    }
    std::sort(ns.begin(), ns.end());
    return ns.empty() ? 0 : ns[ns.size() / 2] / 1000.0;
}

// A call and its floor timed in alternating batches; each keeps its fastest batch median. On a
// shared machine a batch is slowed down whenever another process takes a CPU the caller or the
// HAL's thread needs; alternating gives both sides the same chances, and the fastest batch is
// the one least disturbed.
std::pair<double, double> timeRow(Piece& call, Piece& floor, bool* answered) {
    constexpr int kRounds = 7;
    const int calls = std::max(3, call.iterations / 4);
    double best[2] = {1e300, 1e300};
    Piece* both[2] = {&call, &floor};
    for (int round = 0; round < kRounds && *answered; ++round) {
        for (int side = 0; side < 2 && *answered; ++side) {
            best[side] = std::min(best[side], batchMedianMicros(*both[side], calls, answered));
        }
    }
    return {best[0], best[1]};
}

// Calls per second of `threads` callers calling `work` for `seconds`.
double callsPerSecond(const Work& work, int threads, double seconds, bool* answered) {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> calls{0};
    std::atomic<bool> failed{false};
    std::vector<std::thread> callers;
    const Clock::time_point start = Clock::now();
    for (int t = 0; t < threads; ++t) {
        callers.emplace_back([&] {
            uint64_t mine = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                if (!work()) failed = true;
                ++mine;
            }
            calls += mine;
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (std::thread& t : callers) t.join();
    if (failed) *answered = false;
    return static_cast<double>(calls.load()) / (nanosSince(start) / 1e9);
}

int timeScaling(const std::string& dir) {
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(silentLogger);
    bool answered = true;
    {
        BenchHal hal(zel_bench::stateAnswer());
        std::shared_ptr<ITorq> proxy = zel_bench::connectProxy();
        if (proxy == nullptr) {
            std::cerr << "zel_instructions: no HAL proxy\n";
            return 2;
        }
        Inputs inputs = buildInputs(proxy);
        std::vector<Piece> pieces = buildPieces(inputs);
        std::map<std::string, Piece*> byName;
        for (Piece& p : pieces) byName[p.name] = &p;
        std::map<std::string, double> micros;
        for (const ScalingRow& r : scalingRows()) {
            Piece& call = *byName.at(r.call);
            Piece& floor = *byName.at(r.floor);
            if (call.setup) call.setup();
            for (Piece* p : {&call, &floor}) {
                for (int i = 0; i < 2 && answered; ++i) answered = p->work();
            }
            std::tie(micros[r.call], micros[r.floor]) = timeRow(call, floor, &answered);
            if (!answered) {
                std::cerr << "zel_instructions: " << r.call
                          << " or its floor did not get the "
                             "HAL's answer\n";
                return 2;
            }
        }

        std::ofstream data(dir + "/scaling-times.dat");
        data << "# series\tsize\tcall_us\tfloor_us\n";
        std::cout << "Scaling: time per call (us): the fastest of 7 alternating batch medians\n\n"
                  << "| Call | Size | Call us | Floor us | Call - floor us | Ratio |\n"
                  << "|---|---:|---:|---:|---:|---:|\n";
        for (const ScalingRow& r : scalingRows()) {
            const double call = micros.at(r.call), floor = micros.at(r.floor);
            std::cout << "| " << r.series << " | " << number(r.size) << " | " << std::fixed
                      << std::setprecision(2) << call << " | " << floor << " | " << call - floor
                      << " | " << std::setprecision(3) << call / floor << std::defaultfloat
                      << " |\n";
            data << r.series << '\t' << number(r.size) << '\t' << call << '\t' << floor << '\n';
        }

        // Throughput: the HAL lock is taken shared by every call, so callers on several threads
        // must scale as the bare transaction does.
        struct Series {
            std::string name;
            Work work;
        };
        std::shared_ptr<ITorq> hal2 = proxy;
        const std::vector<Series> series = {
                {"ITorq::request (floor)", zel_bench::requestFloor(hal2, inputs.floors.event)},
                {"ZelEventAcquire (flat API)",
                 [] {
                     return ZelEventAcquire(kEventId, kPackage, kIdentity, kDuration, {}) == kHandle;
                 }},
                {"torqResCtlRequest (torqHalclient)",
                 [] {
                     // Each thread its own list: the signature takes it by reference.
                     thread_local std::list<ZelClient::Resource> list = resourceList(3);
                     return torqHalclient::torqResCtlRequest(kDuration, list, kTag) == kHandle;
                 }},
        };
        const int threadCounts[] = {1, 2, 4, 8};
        std::ofstream tdata(dir + "/throughput.dat");
        tdata << "threads";
        for (const Series& s : series) tdata << '\t' << s.name;
        tdata << '\n';
        // Best of three rounds, the series interleaved, for the same reason as above.
        std::map<std::pair<std::string, int>, double> rate;
        for (int round = 0; round < 3; ++round) {
            for (int threads : threadCounts) {
                for (const Series& s : series) {
                    double& best = rate[{s.name, threads}];
                    best = std::max(best, callsPerSecond(s.work, threads, 0.25, &answered));
                }
            }
        }
        std::cout << "\nThroughput: calls per second, all callers together (best of three 0.25 s "
                     "runs)\n\n| "
                     "Threads |";
        for (const Series& s : series) std::cout << " " << s.name << " |";
        std::cout << "\n|---:|";
        for (size_t i = 0; i < series.size(); ++i) std::cout << "---:|";
        std::cout << "\n";
        for (int threads : threadCounts) {
            std::cout << "| " << threads << " |";
            tdata << threads;
            for (const Series& s : series) {
                const double r = rate.at({s.name, threads});
                std::cout << " " << number(r) << " (" << std::fixed << std::setprecision(2)
                          << r / rate.at({s.name, 1}) << "x) |" << std::defaultfloat;
                tdata << '\t' << number(r);
            }
            std::cout << "\n";
            tdata << '\n';
        }
        std::cout << "\nmachine: " << std::thread::hardware_concurrency() << " CPUs\n";
    }
    binder_host::reset();
    return answered ? 0 : 2;
}

}  // namespace
}  // namespace zel_instructions

int main(int argc, char** argv) {
    using namespace zel_instructions;
    std::string measureDir, reportDir, budget, scalingData, timeDir;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        if (flag == "--measure") {
            measureDir = argv[i + 1];
        } else if (flag == "--report") {
            reportDir = argv[i + 1];
        } else if (flag == "--time") {
            timeDir = argv[i + 1];
        } else if (flag == "--budget") {
            budget = argv[i + 1];
        } else if (flag == "--scaling-data") {
            scalingData = argv[i + 1];
        } else {
            break;
        }
    }
    if (!measureDir.empty()) return measure(measureDir);
    if (!timeDir.empty()) return timeScaling(timeDir);
    if (!reportDir.empty()) return report(reportDir, budget, scalingData);
    std::cerr << "usage: zel_instructions --measure DIR (under callgrind) | --report DIR "
                 "[--budget FILE] [--scaling-data FILE] | --time DIR\n";
    return 2;
}
