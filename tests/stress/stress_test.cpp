// Eight caller threads drive the three front ends (torqHalclient, the flat Zel* API and the action
// wrappers) while the HAL process is killed and started again, over and over. What must hold:
//   - nothing crashes or hangs: a watchdog aborts with a report when no call returns for too long;
//   - every call gives a valid result or the documented failure value, never anything else;
//   - after the last restart, the first call of each front end succeeds;
//   - request_callbacks grows by exactly the callback requests that made a client and never got
//     their answer (the leak the library keeps), and by nothing else;
//   - nothing else grows with the number of restarts: binder objects per process, and heap bytes
//     between the measurements.
// Sanitizer builds run fewer restarts (never fewer than 50) so that CI time holds.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_manager.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#ifdef STRESS_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorq;
using ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;
using Clock = std::chrono::steady_clock;
using Resources = std::list<ZelClient::Resource>;
using Strings = std::vector<std::string>;
using std::chrono::milliseconds;
namespace hc = torqHalclient;

constexpr size_t kCallers = 8;
constexpr const char* kInstance = "vendor.quarn.hardware.torq.ITorq/default";
constexpr int32_t kWithholdEvery = 256;  // the HAL never answers these callback requests
constexpr int32_t kPmStatus = 7;
constexpr int32_t kHandle = INT32_MIN;  // stands for "any handle the HAL issued" in result checks
// Heap margins of the growth check (see the end of the test).
constexpr double kRestartMargin = 6144;
constexpr double kFixedMargin = 64 * 1024;
constexpr double kOneStep = 1024 * 1024;  // what a single phase may add on top of its budget
constexpr int kPhases = 3;

struct RunSize {
    int warmupRestarts;    // before the first memory measurement
    int phaseRestarts;     // between measurements; kPhases phases
    int upMinMs, upMaxMs;  // how long the HAL lives
    int downMaxMs;         // how long it stays dead
    int stallSeconds;      // the watchdog's patience
};

RunSize runSize() {
#ifdef STRESS_SANITIZED
    RunSize size{4, 16, 150, 300, 15, 120};
#else
    RunSize size{10, 40, 200, 400, 15, 30};
#endif
    // For local runs: TORQ_STRESS_PHASE_RESTARTS=N changes the phase length.
    // Never fewer than 50 restarts in all.
    if (const char* env = std::getenv("TORQ_STRESS_PHASE_RESTARTS")) {
        size.phaseRestarts =
                std::max((50 - size.warmupRestarts + kPhases - 1) / kPhases, std::atoi(env));
    }
    return size;
}

// Bytes the program holds on the heap right now.
size_t heapBytes() {
#ifdef STRESS_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

// The log: the lines that matter are counted, nothing is printed.
std::atomic<uint64_t> g_logLines{0}, g_duplicateGroups{0}, g_unknownClients{0};
std::atomic<uint64_t> g_halclientDeaths{0}, g_zelDeaths{0};

void countingLogger(const __android_logger_data* data, const char* message) {
    g_logLines++;
    if (message == nullptr || data->tag == nullptr) return;
    if (std::strcmp(message, "Same callback interface registered already") == 0) {
        g_duplicateGroups++;
    } else if (std::strcmp(message, "callback not found in request_callbacks") == 0) {
        g_unknownClients++;
    } else if (std::strcmp(message, "Torq HAL Service died") == 0) {
        (std::strcmp(data->tag, "[ZEL_CLIENT]") == 0 ? g_zelDeaths : g_halclientDeaths)++;
    }
}

// Failures found by worker threads, reported at the end.
std::mutex g_failMutex;
std::vector<std::string> g_failures;
std::atomic<uint64_t> g_failureCount{0};

void fail(const std::string& what) {
    g_failureCount++;
    std::lock_guard<std::mutex> lock(g_failMutex);
    if (g_failures.size() < 25) g_failures.push_back(what);
}

// ---- The HAL ------------------------------------------------------------------------------
// It answers fast and predictably so that callers can tell a valid result from garbage: handles
// come from one counter that never repeats across restarts; a callback request is answered
// before the reply with its own records (except every kWithholdEvery-th handle: never); state
// queries echo the ids or paths with Reported::state; listening registrations are notified at once
// with Reported::notice and kept until unregistered; other int methods return 0. It records
// nothing, so its memory stays flat however long it runs.

struct Reported {  // what the HAL reports for an id or a path
    static std::string state(int32_t id) { return "v" + std::to_string(id); }
    static std::string state(const std::string& path) { return "s:" + path; }
    static std::string notice(int32_t id) { return "n" + std::to_string(id); }
    static std::string notice(const std::string& path) { return "n:" + path; }
};
bool withheld(int32_t handle) {
    return handle > 0 && handle % kWithholdEvery == 0;
}

struct HalCounters {
    std::atomic<int32_t> lastHandle{0};
    std::atomic<uint64_t> calls{0}, callbackRequests{0}, answersSent{0}, answersWithheld{0};
    std::atomic<uint64_t> malformed{0};  // parcels no front end builds (unknown kind etc.)
    std::atomic<int> delayUs{0};         // each call sleeps this long (the HAL starts threads)
};

class Service : public BnTorq {
  public:
    explicit Service(std::shared_ptr<HalCounters> counters) : c_(std::move(counters)) {}

    ndk::ScopedAStatus init() override { return enter(); }
    ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* ret) override {
        // Resource control and acquisition, SA control, dumps and history switch, thermal notify,
        // event acquire, notify, platform resource acquisition.
        constexpr uint32_t kKinds =
                1u << 1 | 1u << 2 | 1u << 5 | 1u << 7 | 1u << 8 | 1u << 10 | 1u << 12;
        if (parcel.kind < 0 || parcel.kind > 31 || !(kKinds >> parcel.kind & 1)) c_->malformed++;
        *ret = ++c_->lastHandle;
        if (parcel.callback != nullptr) {
            c_->callbackRequests++;
            if (parcel.kind != 1 && parcel.kind != 2) c_->malformed++;
            if (withheld(*ret)) {
                c_->answersWithheld++;
            } else if (parcel.callback->onCallback(parcel.data).isOk()) {
                // Oneway: queued to the client before this reply leaves, so a caller that gets
                // the handle also gets the answer.
                c_->answersSent++;
            }
        }
        return enter();
    }
    ndk::ScopedAStatus release(int32_t, int32_t* ret) override { return zero(ret); }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                    std::vector<TorqRequestData>* ret) override {
        ret->clear();
        if (parcel.kind == 11) {  // history: two records
            ret->resize(2);
            (*ret)[0].extra = "h1";
        } else if (parcel.kind == 13) {  // power-mode status
            ret->resize(1);
            (*ret)[0].value = std::to_string(kPmStatus);
        } else {
            if (parcel.kind != 0) c_->malformed++;
            for (TorqRequestData r : parcel.data) {
                r.value = r.path.has_value() ? Reported::state(*r.path) : Reported::state(r.id);
                ret->push_back(std::move(r));
            }
        }
        return enter();
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                         const std::shared_ptr<ITorqCallback>& callback,
                                         int32_t* ret) override {
        if (parcel.kind != 0) c_->malformed++;
        std::vector<TorqRequestData> notice = parcel.data;
        for (TorqRequestData& r : notice) {
            r.value = r.path.has_value() ? Reported::notice(*r.path) : Reported::notice(r.id);
        }
        return registerListener(callback, notice, ret);
    }
    ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* ret) override {
        return unregisterListener(handle, ret);
    }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string* ret) override {
        *ret = "stress";
        return enter();
    }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t* ret) override {
        return zero(ret);
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                const std::shared_ptr<ITorqCallback>& callback,
                                                int32_t* ret) override {
        std::vector<TorqRequestData> notice(ids.size());
        for (size_t i = 0; i < ids.size(); ++i) {
            notice[i].id = ids[i];
            notice[i].value = Reported::notice(ids[i]);
        }
        return registerListener(callback, notice, ret);
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* ret) override {
        return unregisterListener(handle, ret);
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t* ret) override {
        c_->malformed++;  // never sent by the library
        return zero(ret);
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override {
        return zero(ret);
    }
    ndk::ScopedAStatus ruleCtl(int32_t, int32_t, const std::vector<TorqRequestData>&,
                               int32_t* ret) override {
        return zero(ret);
    }

  private:
    ndk::ScopedAStatus enter() {
        c_->calls++;
        if (int us = c_->delayUs.load(); us > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(us));
        }
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus zero(int32_t* ret) {
        *ret = 0;
        return enter();
    }
    ndk::ScopedAStatus registerListener(const std::shared_ptr<ITorqCallback>& callback,
                                        const std::vector<TorqRequestData>& notice, int32_t* ret) {
        *ret = ++c_->lastHandle;
        if (callback == nullptr) {
            c_->malformed++;
        } else {
            std::lock_guard<std::mutex> lock(mu_);
            listeners_[*ret] = callback;
            (void)callback->onCallback(notice);
        }
        return enter();
    }
    ndk::ScopedAStatus unregisterListener(int32_t handle, int32_t* ret) {
        {
            std::lock_guard<std::mutex> lock(mu_);
            listeners_.erase(handle);
        }
        return zero(ret);
    }

    const std::shared_ptr<HalCounters> c_;
    std::mutex mu_;
    std::map<int32_t, std::shared_ptr<ITorqCallback>> listeners_;
};

// The HAL in its own emulated process, killed and started again by the test's main thread. The
// instance stays declared from the first start on, so torqHalclient callers wait for the next
// start.
struct StressHal {
    StressHal() { pids.reserve(4096); }  // grown during a measurement, it would count as growth
    ~StressHal() {
        kill();
        binder_host::undeclareInstance(kInstance);
    }
    // A new process registers the instance (the running one is killed first).
    void start() {
        kill();
        const binder_host::ProcessId p = binder_host::createProcess("torq-hal", 4);
        bool registered = false;
        binder_host::runInProcess(p, [&] {
            service = ndk::SharedRefBase::make<Service>(counters);
            registered = AServiceManager_addService(service->asBinder().get(), kInstance) == EX_NONE;
        });
        if (!registered) {
            std::fprintf(stderr, "stress HAL: could not register %s\n", kInstance);
            std::abort();
        }
        pids.push_back(p);
        pid = p;
        starts++;
        binder_host::declareInstance(kInstance);
    }
    // The process dies as if it crashed.
    void kill() {
        if (service == nullptr) return;
        binder_host::killProcess(pid);
        service.reset();
    }
    // Binder objects still alive in HAL processes that died: a reference the library failed to
    // drop (an interface kept after a death) keeps the dead HAL's object alive.
    size_t deadBinders() const {
        size_t n = 0;
        for (size_t i = 0; i + 1 < pids.size(); ++i) n += binder_host::liveBinderCount(pids[i]);
        return n;
    }

    const std::shared_ptr<HalCounters> counters = std::make_shared<HalCounters>();
    std::vector<binder_host::ProcessId> pids;  // every process it ran in, the running one last
    std::shared_ptr<BnTorq> service;           // null while dead
    std::atomic<binder_host::ProcessId> pid{0};
    std::atomic<int> starts{0};
};

// ---- The callers ----------------------------------------------------------------------------

std::string text(const Resources& r) {
    std::string out;
    for (const auto& x : r) out += std::to_string(x.id) + "=" + x.value.value_or("<absent>") + " ";
    return out;
}
std::string text(const Strings& values, const Strings& paths) {
    std::string out =
            std::to_string(values.size()) + " values, " + std::to_string(paths.size()) + " paths: ";
    for (size_t i = 0; i < paths.size() && i < values.size(); ++i) {
        out += paths[i] + "=" + values[i] + " ";
    }
    return out;
}

// What reaches a caller's callback. A request's answer must be `expected` exactly (the HAL echoes
// the request's records); a listening notice (no `expected`) must carry the HAL's notice value
// for each id or path.
class Checker : public IClientCallback, public IClientCallbackByPath {
  public:
    explicit Checker(std::optional<std::string> expected = {}) : expected_(std::move(expected)) {}
    void onCallback(Resources got) override {
        Resources notice;
        for (const auto& r : got) notice.push_back({r.id, Reported::notice(r.id)});
        check(text(got), text(notice));
    }
    void onCallback(Strings values, Strings paths) override {
        Strings notice;
        for (const auto& p : paths) notice.push_back(Reported::notice(p));
        check(text(values, paths), text(notice, paths));
    }
    std::atomic<uint64_t> calls{0};

  private:
    void check(const std::string& got, const std::string& notice) {
        const std::string& want = expected_ ? *expected_ : notice;
        if (got != want) fail("callback got " + got + "instead of " + want);
        calls++;
    }
    const std::optional<std::string> expected_;
};

// A callback request whose fate is not known yet. `owner` shares the callback's control block:
// its use count is 1 plus the number of TorqCallbackClient objects alive that hold the callback.
struct Pending {
    std::shared_ptr<Checker> owner;
    int32_t handle;
};

struct Caller {
    std::mt19937 rng;
    std::atomic<uint64_t> failures{0};    // calls that returned the failure value
    std::atomic<const char*> op{"idle"};  // what the thread is doing, for the watchdog
    std::atomic<int64_t> opSince{0};      // ms since start when `op` began
    std::vector<Pending> pending;         // touched by its thread, or by the driver while parked
};

class StressRun {
  public:
    explicit StressRun(StressHal& hal) : hal_(hal) {}

    StressHal& hal_;
    const Clock::time_point start_ = Clock::now();
    const size_t binderBase_ = binder_host::liveBinderCount(binder_host::kDefaultProcess);
    Caller callers_[kCallers];
    std::atomic<bool> stop_{false};
    std::atomic<uint64_t> progress_{0};
    std::atomic<const char*> driverStep_{"start"};
    std::shared_ptr<Checker> idListener_ = std::make_shared<Checker>();
    std::shared_ptr<Checker> pathListener_ = std::make_shared<Checker>();

    int64_t nowMs() const {
        return std::chrono::duration_cast<milliseconds>(Clock::now() - start_).count();
    }
    bool validHandle(int32_t h) { return h >= 1 && h <= hal_.counters->lastHandle.load(); }

    // `got` must be `ok` (by default: a handle the HAL issued) or the failure value.
    int32_t result(Caller& c, int32_t got, int32_t ok = kHandle) {
        if (got == -1) {
            c.failures++;
        } else if (ok == kHandle ? !validHandle(got) : got != ok) {
            fail(std::string(c.op.load()) + " gave " + std::to_string(got));
        }
        return got;
    }
    int32_t track(Caller& c, std::shared_ptr<Checker> owner, int32_t h) {
        c.pending.push_back({std::move(owner), result(c, h)});
        return h;
    }
    // Runs `calls` under the watchdog's eyes.
    template <typename Calls>
    void step(Caller& c, const char* name, Calls&& calls) {
        c.opSince = nowMs();
        c.op = name;
        calls();
        c.op = "idle";
        progress_++;
    }

    std::mutex parkMutex_;
    std::condition_variable parkCv_;
    std::atomic<bool> pause_{false};  // written under parkMutex_
    size_t parked_ = 0;

    // Waits here while the driver measures; returns false when the run is over.
    bool parkIfAsked() {
        if (!pause_.load()) return !stop_;  // no lock on the way of every call
        std::unique_lock<std::mutex> lock(parkMutex_);
        if (!pause_) return !stop_;
        ++parked_;
        parkCv_.notify_all();
        parkCv_.wait(lock, [&] { return !pause_; });
        --parked_;
        return !stop_;
    }
    // Callers finish their current call and wait. The HAL must be up, or torqHalclient callers
    // would wait for it in AServiceManager_waitForService.
    void pauseCallers() {
        std::unique_lock<std::mutex> lock(parkMutex_);
        pause_ = true;
        parkCv_.wait(lock, [&] { return parked_ == kCallers; });
    }
    void resumeCallers() {
        {
            std::lock_guard<std::mutex> lock(parkMutex_);
            pause_ = false;
        }
        parkCv_.notify_all();
    }

    void caller(size_t index) {
        Caller& c = callers_[index];
        c.rng.seed(static_cast<uint32_t>(1234 + index));
        c.pending.reserve(256);
        for (uint64_t round = 1; parkIfAsked(); ++round) {
            if (index == 0) listenerRound(c);
            callerRound(c);
            if (round % 8 == 0) prune(c);
        }
    }

    // Only caller 0 uses the listening registry: the listening calls hold listening_groups_mutex
    // while taking the HAL lock exclusively on their failure path, and
    // torqThermalListeningRegister appends to the registry without the mutex. Both are kept as
    // they are, so the registry gets one user at a time.
    void listenerRound(Caller& c) {
        static const char* const kNames[] = {
                "torqResListeningRegister", "torq_res_listening_register_by_path",
                "torq_res_listening_register_map_by_path", "torqThermalListeningRegister"};
        const unsigned kind = c.rng() % 4;
        step(c, kNames[kind], [&] {
            Resources ids{{0x01010B10, "1"}, {0x01010B20, "2"}};
            int32_t h = kind == 0   ? hc::torqResListeningRegister(ids, 1, idListener_)
                        : kind == 1 ? hc::torq_res_listening_register_by_path(
                                              {"/stress/a", "/stress/b"}, 2, pathListener_)
                        : kind == 2 ? hc::torq_res_listening_register_map_by_path(
                                              {{"/stress/m", "1"}}, 3, pathListener_)
                                    : hc::torqThermalListeningRegister({3, 5, 7}, idListener_);
            if (result(c, h) == -1) return;
            if (kind == 3) result(c, hc::torqThermalListeningUnregister(h), 0);
            // torqResListeningUnRegister removes the local group (the thermal one too) whatever
            // the HAL says, but gives -1 both when the HAL was not reached (group kept) and when
            // the transaction failed (group gone). Asking until the HAL answers settles it;
            // asking again for a removed group is harmless. A group left behind would make the
            // next registration of the same ids or paths a duplicate, which the run checks.
            while (result(c, hc::torqResListeningUnRegister(h), 0) == -1) {
            }
        });
    }

    // One group of calls, picked at random. State queries must give the HAL's values on success
    // and leave the output untouched on failure.
    void callerRound(Caller& c) {
        static const char* const kNames[] = {
                "torqHalclient requests",    "torqHalclient callback requests",
                "torqHalclient state",       "torqHalclient dumps, property, init",
                "flat API requests",         "flat API state",
                "wrapper acquire and notify"};
        const unsigned group = c.rng() % std::size(kNames);
        const int32_t tag = static_cast<int32_t>(c.rng() % 100);
        const std::string t = std::to_string(tag);
        step(c, kNames[group], [&] {
            switch (group) {
                case 0: {
                    Resources res{{0x010108A0, "1200000"}, {0x010108B0, "900"}};
                    if (int32_t h = result(c, hc::torqResCtlRequest(500, res, tag)); h != -1) {
                        result(c, hc::torqResCtlRelease(h), 0);
                    }
                    if (int32_t h = result(c, hc::torqSACtlRequest(300, 0x0101A000, tag)); h != -1) {
                        result(c, hc::torqSACtlRelease(h), 0);
                    }
                    result(c, hc::torq_resctl_request_by_path(-1, 200, {"/stress/p1"}, {"5"}, -1, 0,
                                                              tag));
                    Resources levels{{1, "3"}, {2, "0"}};
                    result(c, hc::torqThermalNotify(levels, tag), 0);
                    break;
                }
                case 1: {
                    Resources res{{0x010108A0, t}, {0, std::nullopt}};
                    auto a = std::make_shared<Checker>(text({{0x010108A0, t}, {0, std::string()}}));
                    int32_t h = track(c, a, hc::torqResCtlRequest(-1, 100, res, -1, 1, tag, a));
                    if (h != -1 && c.rng() % 2) result(c, hc::torqResCtlRelease(h), 0);
                    a = std::make_shared<Checker>(text({{0x0101A010, std::string()}}));
                    track(c, a, hc::torqSACtlRequest(-1, 300, 0x0101A010, -1, 0, tag, a));
                    Strings paths{"/stress/p1", "/stress/p2"}, values{"1", t};
                    a = std::make_shared<Checker>(text(values, paths));
                    track(c, a,
                          hc::torq_resctl_request_with_callback_by_path(-1, 200, paths, values, -1,
                                                                        1, tag, a));
                    break;
                }
                case 2: {
                    Resources ids{{0x010108A0, "1"}, {0x010108B0, "1"}, {0x010108C0, "1"}};
                    Resources out, want;
                    if (result(c, hc::torqResStateRequest(ids, tag, out), 3) == 3) {
                        for (const auto& r : ids) want.push_back({r.id, Reported::state(r.id)});
                    }
                    if (text(out) != text(want)) fail("torqResStateRequest output " + text(out));
                    Strings paths{"/stress/s1", "/stress/s2"}, outPaths, wantPaths;
                    if (result(c,
                               hc::torq_res_state_request_by_path(paths, {"1", "2"}, tag, outPaths),
                               2) == 2) {
                        wantPaths = {Reported::state(paths[0]), Reported::state(paths[1])};
                    }
                    if (outPaths != wantPaths) fail("torq_res_state_request_by_path output");
                    std::map<std::string, std::string> outMap, wantMap;
                    if (result(c,
                               hc::torq_res_state_request_map_by_path(
                                       {{paths[0], "1"}, {paths[1], "2"}}, tag, outMap),
                               2) == 2) {
                        wantMap = {{paths[0], Reported::state(paths[0])},
                                   {paths[1], Reported::state(paths[1])}};
                    }
                    if (outMap != wantMap) fail("torq_res_state_request_map_by_path output");
                    break;
                }
                case 3:
                    result(c, hc::torqDumpRunMap(), 0);
                    result(c, hc::torqHistoryRequestRecordOn(), 0);
                    result(c, hc::torqPropertySet("stress.prop", "1"), 0);
                    hc::torq_init();
                    break;
                case 4: {
                    std::vector<ZelClient::Resource> res{{0x010108A0, "1"}, {0x010108B0, "2"}};
                    if (int32_t h = result(c, ZelEventAcquire(static_cast<int32_t>(c.rng() % 199),
                                                              "com.stress", "stress", 100,
                                                              c.rng() % 2 ? res : decltype(res){}));
                        h != -1) {
                        ZelRelease(h);
                    }
                    result(c, ZelResAcquire(res, 0, "stress", 100));
                    result(c, ZelPlatformResAcquire(res, 0, "stress", "com.stress", 100));
                    result(c, ZelNotify(3, 7, {10, 20}));
                    result(c, setRelatedSysInfo(1, 1LL << 40), 0);
                    result(c, zelRuleCtl(200, 1, {{0x01011040, "1"}}), 0);
                    break;
                }
                case 5: {
                    std::vector<ZelClient::Resource> res{{0x010108A0, "x"}, {0x010108B0, "x"}};
                    const bool ok = result(c, ZelMutiResStateRequest(res), 2) == 2;
                    if (res[0].value != (ok ? Reported::state(0x010108A0) : "x") ||
                        res[1].value != (ok ? Reported::state(0x010108B0) : "x")) {
                        fail("ZelMutiResStateRequest values");
                    }
                    std::string one = "unchanged", history = "unchanged";
                    ZelResStateRequest(0x010108C0, one);
                    if (one != "unchanged" && one != Reported::state(0x010108C0)) {
                        fail("ZelResStateRequest value " + one);
                    }
                    const bool got = result(c, ZelGetHistory(history), 0) == 0;
                    if (history != (got ? "start:h1;none;end" : "unchanged")) {
                        fail("ZelGetHistory text " + history);
                    }
                    result(c, ZelGetPMStatus(2), kPmStatus);
                    const int32_t init = zelInit();
                    if (init != 0 && init != -1 && init != -2) {
                        fail("zelInit returned " + std::to_string(init));
                    }
                    if (init != 0) c.failures++;
                    break;
                }
                default: {
                    if (int32_t h = result(c, ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN",
                                                                     "scene", "stress", 100));
                        h != -1) {
                        ZelReleaseWapper(h);
                    }
                    struct Notice {
                        int src, type, param;
                        const char* data;
                    };
                    static const Notice kNotices[] = {{1, 1, 0, ""},
                                                      {3, 1, 0, ""},
                                                      {8, 1, 1, ""},
                                                      {9, 0, 0, ""},
                                                      {9, 1, 0, ""},
                                                      {14, 0, 0, ""},
                                                      {14, 1, 2, "upgrade"},
                                                      {15, 1, 5, ""},
                                                      {102, 1, 0, ""},
                                                      {111, -1, 0, ""},
                                                      {130, 1, 0, "1-200,2-300"},
                                                      {131, 1, 0, "colocation:1,groupmigrate:5-3"},
                                                      {9000, 1, 0, "1,2;3,4"},
                                                      {4, 1, 0, ""}};
                    const Notice& n = kNotices[c.rng() % std::size(kNotices)];
                    const int r = ZelNotifyWapper("stress", n.src, n.type, n.param, 0, 0, n.data);
                    if (r != 0) fail("ZelNotifyWapper returned " + std::to_string(r));
                }
            }
        });
    }

    // Settles the callback requests whose fate is known; keeps the others.
    void prune(Caller& c) {
        auto kept = c.pending.begin();
        for (auto it = c.pending.begin(); it != c.pending.end(); ++it) {
            // The holders first: a client counts the answer before it goes away, so once the
            // count shows it gone (the fence pairs with the count's release), the answer shows.
            const long users = it->owner.use_count();
            std::atomic_thread_fence(std::memory_order_acquire);
            const uint64_t answers = it->owner->calls.load();
            if (answers > 1) fail("a request callback was answered " + std::to_string(answers));
            // No client holds the callback any more: it was answered and let go, or never had a
            // client (the HAL was not reached). A client that let go without an answer, after
            // the HAL accepted the request, would be a bug.
            if (users == 1) {
                if (answers == 0 && it->handle != -1) {
                    fail("request " + std::to_string(it->handle) + " lost its client unanswered");
                }
                continue;
            }
            if (kept != it) *kept = std::move(*it);
            ++kept;
        }
        c.pending.erase(kept, c.pending.end());
    }

    struct Snapshot {
        int restarts = 0;
        size_t heap = 0;
        size_t leaked = 0;          // callback requests with a client and no answer
        size_t leakedWithheld = 0;  // ... of which the HAL withheld the answer
        uint64_t halCalls = 0;
    };

    // With every caller parked and the binder world drained, request_callbacks must hold exactly
    // the clients whose answer never came. Those answers cannot come any more (the HAL that got
    // the request died or withheld it), so the clients are freed here: the heap then holds the
    // library's own memory alone, and the next measurement counts the next phase's clients.
    Snapshot snapshot() {
        Snapshot s;
        s.restarts = hal_.starts - 1;
        s.halCalls = hal_.counters->calls.load();
        for (Caller& c : callers_) {
            prune(c);
            for (const Pending& p : c.pending) {
                const uint64_t answers = p.owner->calls.load();
                const long users = p.owner.use_count();
                if (answers != 0 || users != 2) {
                    fail("callback request in an unexpected state: answers " +
                         std::to_string(answers) + ", holders " + std::to_string(users - 1));
                    continue;
                }
                ++s.leaked;
                if (p.handle != -1) {
                    // The HAL answers before it replies: a caller that got a handle got the
                    // answer, unless the HAL withheld it.
                    if (!withheld(p.handle)) {
                        fail("request " + std::to_string(p.handle) + " never got its answer");
                    }
                    ++s.leakedWithheld;
                }
            }
            c.pending.clear();
        }
        {
            std::vector<std::shared_ptr<TorqCallbackClient>> unanswered;
            {
                std::lock_guard<std::mutex> lock(request_callback_mutex);
                unanswered.assign(request_callbacks.begin(), request_callbacks.end());
                request_callbacks.clear();  // keeps its capacity
            }
            EXPECT_EQ(unanswered.size(), s.leaked)
                    << "request_callbacks after " << s.restarts << " restarts";
        }
        // The unanswered clients were plain objects (the HAL dropped its reference when it died or
        // never got one), so no binder object of this process outlives the calls.
        EXPECT_TRUE(binder_host::drain(10000));
        EXPECT_EQ(binder_host::liveBinderCount(binder_host::kDefaultProcess), binderBase_)
                << "binder objects of this process after " << s.restarts << " restarts";
        EXPECT_EQ(hal_.deadBinders(), 0u) << "objects of dead HAL processes are still referenced";
        s.heap = heapBytes();
        return s;
    }

    // What a restart leaves behind when only a few calls are made: the emulated process that
    // died (the host runtime keeps its record and its parked binder threads) and the death
    // recipients each front end makes per connection. Every caller thread calls each front end
    // once, through a HAL slow enough to start all its binder threads, as in the storm.
    double quietRestartCost(int restarts) {
        hal_.counters->delayUs = 1000;
        size_t before = 0;
        for (int i = -2; i < restarts; ++i) {
            hal_.start();
            std::vector<std::thread> threads;
            for (size_t t = 0; t < kCallers; ++t) {
                threads.emplace_back([] {
                    Resources res{{0x010108A0, "1"}};
                    (void)hc::torqResCtlRequest(100, res, 0);
                    (void)ZelEventAcquire(1, "com.stress", "stress", 100, {});
                    (void)ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "s", "i", 1);
                });
            }
            for (std::thread& t : threads) t.join();
            binder_host::drain(10000);
            if (i == -1) before = heapBytes();
        }
        hal_.counters->delayUs = 0;
        return (static_cast<double>(heapBytes()) - static_cast<double>(before)) / restarts;
    }

    void watchdog(std::atomic<bool>& finished, int stallSeconds) {
        uint64_t seen = progress_.load();
        for (auto lastChange = Clock::now(); !finished.load();) {
            std::this_thread::sleep_for(milliseconds(200));
            if (const uint64_t now = progress_.load(); now != seen) {
                seen = now;
                lastChange = Clock::now();
            } else if (Clock::now() - lastChange >= std::chrono::seconds(stallSeconds)) {
                std::fprintf(stderr,
                             "\nstress watchdog: no call returned for %d s; the run is stuck.\n"
                             "  driver: %s; HAL restarts so far: %d, HAL process %d %s\n",
                             stallSeconds, driverStep_.load(), hal_.starts - 1, hal_.pid.load(),
                             binder_host::isAlive(hal_.pid) ? "alive" : "dead");
                for (size_t i = 0; i < kCallers; ++i) {
                    std::fprintf(stderr, "  caller %zu: %s for %lld ms\n", i, callers_[i].op.load(),
                                 static_cast<long long>(nowMs() - callers_[i].opSince.load()));
                }
                std::abort();
            }
        }
    }
};

TEST(Stress, ThreeFrontEndsSurviveRepeatedHalDeaths) {
    const RunSize size = runSize();
    binder_host::reset();
    __android_log_set_logger(countingLogger);
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        ASSERT_TRUE(request_callbacks.empty());
    }
    StressHal hal;
    StressRun run(hal);
    std::atomic<bool> finished{false};
    std::thread watchdog([&] { run.watchdog(finished, size.stallSeconds); });

    const double perRestart = run.quietRestartCost(4);
    const int quietRestarts = hal.starts - 1;

    std::vector<std::thread> callers;
    for (size_t i = 0; i < kCallers; ++i) callers.emplace_back([&run, i] { run.caller(i); });

    std::mt19937 rng(42);
    std::vector<StressRun::Snapshot> points;
    const int lastRestart = size.warmupRestarts + kPhases * size.phaseRestarts;
    for (int restart = 1; restart <= lastRestart; ++restart) {
        std::this_thread::sleep_for(
                milliseconds(size.upMinMs + rng() % (size.upMaxMs - size.upMinMs + 1)));
        run.driverStep_ = "killing the HAL";
        hal.kill();
        std::this_thread::sleep_for(milliseconds(rng() % (size.downMaxMs + 1)));
        run.driverStep_ = "starting the HAL";
        hal.start();
        run.progress_++;
        if (restart >= size.warmupRestarts &&
            (restart - size.warmupRestarts) % size.phaseRestarts == 0) {
            run.driverStep_ = "measuring";
            run.pauseCallers();
            EXPECT_TRUE(binder_host::drain(10000)) << "binder work still pending";
            points.push_back(run.snapshot());
            run.progress_++;
            run.resumeCallers();
        }
    }

    // Stop the callers while the HAL is up (a torqHalclient caller may be waiting for it).
    run.driverStep_ = "stopping the callers";
    run.stop_ = true;
    run.resumeCallers();
    for (std::thread& t : callers) t.join();

    // The last restart, with nobody calling: once the death notices are in, the first call of
    // each front end must reach the new HAL.
    run.driverStep_ = "last restart";
    hal.kill();
    ASSERT_TRUE(binder_host::drain(10000));
    hal.start();
    Resources res{{0x010108A0, "1"}};
    EXPECT_TRUE(run.validHandle(hc::torqResCtlRequest(100, res, 0)))
            << "torqHalclient's first call after the last restart";
    EXPECT_TRUE(run.validHandle(ZelEventAcquire(0, "com.stress", "stress", 100, {})))
            << "the flat API's first call after the last restart";
    EXPECT_TRUE(run.validHandle(ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "s", "i", 1)))
            << "the wrappers' first call after the last restart";
    const int32_t h = hc::torqResListeningRegister(res, 0, run.idListener_);
    EXPECT_TRUE(run.validHandle(h)) << "listening after the last restart";
    EXPECT_EQ(hc::torqResListeningUnRegister(h), 0);
    ASSERT_TRUE(binder_host::drain(10000));
    run.driverStep_ = "final accounting";
    const StressRun::Snapshot end = run.snapshot();
    finished = true;
    watchdog.join();
    // Let the last death notices run before the test ends: at exit the library's globals go away
    // while binder threads may still be delivering them.
    hal.kill();
    binder_host::drain(10000);
    __android_log_set_logger(__android_log_stderr_logger);

    // ---- report ----
    uint64_t failures = 0;
    for (const Caller& c : run.callers_) failures += c.failures.load();
    size_t leaked = end.leaked, leakedWithheld = end.leakedWithheld;
    for (const StressRun::Snapshot& p : points) {
        leaked += p.leaked;
        leakedWithheld += p.leakedWithheld;
    }
    const HalCounters& hc = *hal.counters;
    std::printf("stress: %d HAL restarts survived under load (and %d quiet ones), %" PRIu64
                " HAL calls, %" PRIu64 " failure values, %" PRIu64 " log lines\n",
                hal.starts - 1 - quietRestarts, quietRestarts, end.halCalls, failures,
                g_logLines.load());
    std::printf("stress: %" PRIu64 " callback requests reached the HAL, %" PRIu64
                " answered, %" PRIu64 " withheld; %zu never answered (%zu with a handle)\n",
                hc.callbackRequests.load(), hc.answersSent.load(), hc.answersWithheld.load(),
                leaked, leakedWithheld);
    std::printf("stress: a quiet restart leaves %.0f B; death notices: torqHalclient %" PRIu64
                ", flat API %" PRIu64 "\n",
                perRestart, g_halclientDeaths.load(), g_zelDeaths.load());

    // ---- checks ----
    {
        std::lock_guard<std::mutex> lock(g_failMutex);
        EXPECT_EQ(g_failureCount.load(), 0u) << "invalid results, first ones:";
        for (const std::string& f : g_failures) ADD_FAILURE() << f;
    }
    EXPECT_GE(hal.starts - 1 - quietRestarts, 50) << "restarts under load";
    EXPECT_EQ(hc.malformed.load(), 0u) << "the HAL received requests no front end builds";
    EXPECT_EQ(g_duplicateGroups.load(), 0u) << "a listening group outlived its unregistration";
    EXPECT_EQ(g_unknownClients.load(), 0u) << "an answer found no client in request_callbacks";
    EXPECT_GT(g_halclientDeaths.load(), 0u) << "no HAL death while torqHalclient was connected";
    EXPECT_GT(g_zelDeaths.load(), 0u) << "no HAL death while the flat API was connected";
    EXPECT_GT(leakedWithheld, 0u) << "no withheld answer: the accounting went untested";
    EXPECT_EQ(run.idListener_.use_count(), 1) << "a listening client outlived its group";
    EXPECT_EQ(run.pathListener_.use_count(), 1) << "a listening client outlived its group";
    EXPECT_GT(run.idListener_->calls.load(), 0u);
    EXPECT_GT(run.pathListener_->calls.load(), 0u);

    // Heap: between two measurements it may grow by what each restart leaves behind. A quiet
    // restart's residue is calibrated; a busy one may leave more, as the number of death
    // recipients the flat API made (its connect does not test the cache again, so racing callers
    // each make one) and the work still queued when the HAL died vary. Now that a dead process
    // returns its memory the quiet residue is small, so the fixed part per restart carries the
    // variation: twice the quiet residue plus 6 kB per restart; the fixed part per phase covers
    // capacity doublings of request_callbacks and of this test's lists.
    // Now and then one phase also sees a single step of a few hundred kB that later phases never
    // give back nor repeat: bytes some thread keeps at the high-water mark of a busy moment. So
    // one phase of the kPhases may exceed its budget, by at most kOneStep. A leak on every call or
    // every restart grows every phase alike and fails at least two; a lone step larger than
    // kOneStep fails too.
    int overBudget = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        const StressRun::Snapshot& b = points[i];
        std::printf("stress: after %3d restarts: heap %zu B, %zu unanswered clients\n", b.restarts,
                    b.heap, b.leaked);
        if (i == 0) continue;
        const StressRun::Snapshot& a = points[i - 1];
        const int restarts = b.restarts - a.restarts;
        const double growth = static_cast<double>(b.heap) - static_cast<double>(a.heap);
        const double budget = restarts * (2 * perRestart + kRestartMargin) + kFixedMargin;
        std::printf(
                "stress: restarts %d..%d: heap %+.0f B, %.0f B/restart (budget %.0f; a leak of 1 "
                "byte per HAL call would add %.0f)\n",
                a.restarts, b.restarts, growth, growth / restarts, budget / restarts,
                static_cast<double>(b.halCalls - a.halCalls) / restarts);
        if (growth > budget) ++overBudget;
        EXPECT_LE(growth, budget + kOneStep)
                << "heap grew with the restarts " << a.restarts << ".." << b.restarts;
    }
    EXPECT_LE(overBudget, 1) << "the heap grew beyond its budget in " << overBudget << " of "
                             << points.size() - 1 << " phases";
}

}  // namespace

// The heap figures count bytes in use. glibc's per-thread caches keep freed blocks that count as
// in use, and every restart brings new binder threads with caches of their own, which would
// blur what the library does. The test runs without them: the
// program starts itself again with the caches switched off when they are on.
int main(int argc, char** argv) {
#ifndef STRESS_SANITIZED
    constexpr const char* kNoCache = "glibc.malloc.tcache_count=0";
    const char* tunables = std::getenv("GLIBC_TUNABLES");
    if (tunables == nullptr || std::strstr(tunables, kNoCache) == nullptr) {
        std::string value = tunables != nullptr ? std::string(tunables) + ":" + kNoCache : kNoCache;
        setenv("GLIBC_TUNABLES", value.c_str(), 1);
        execv("/proc/self/exe", argv);
        std::perror("stress_tests: execv");  // carries on with the caches
    }
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
