// Eight caller threads drive the three front ends (torqHalclient, the flat Zel* API and the action
// wrappers) while the HAL process is killed and started again, over and over. What must hold:
//   - nothing crashes or hangs (a hang runs into the test's time limit);
//   - every call gives a valid result or the documented failure value, never anything else;
//   - after the last restart, the first call of each front end succeeds;
//   - request_callbacks grows by exactly the callback requests that made a client and never got
//     their answer (the leak the library keeps), and by nothing else;
//   - nothing else grows with the number of restarts: binder objects per process, and heap bytes
//     between the measurements.

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
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <random>
#include <shared_mutex>
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
using Records = std::vector<TorqRequestData>;
using Resources = std::list<ZelClient::Resource>;
using Strings = std::vector<std::string>;
using std::chrono::milliseconds;
namespace hc = torqHalclient;

constexpr size_t kCallers = 8;
constexpr const char* kInstance = "vendor.quarn.hardware.torq.ITorq/default";
constexpr int32_t kWithholdEvery = 256;  // the HAL never answers these callback requests
constexpr int32_t kHandle = INT32_MIN;  // stands for "any handle the HAL gave out" in result checks
// The run: restarts before the first heap measurement and between two (kPhases phases), how long
// the HAL lives and stays dead. Sanitizer builds run fewer restarts (never fewer than 50) so that
// CI time holds.
constexpr int kPhases = 3, kDownMaxMs = 15;
#ifdef STRESS_SANITIZED
constexpr int kWarmupRestarts = 4, kPhaseRestarts = 16, kUpMinMs = 150, kUpMaxMs = 300;
#else
constexpr int kWarmupRestarts = 10, kPhaseRestarts = 40, kUpMinMs = 200, kUpMaxMs = 400;
#endif
// A phase's heap budget: twice a quiet restart's residue plus kRestartMargin per restart, plus
// kFixedMargin; one phase may exceed it by kOneStep (see the end of the test).
constexpr double kRestartMargin = 6144, kFixedMargin = 64 * 1024, kOneStep = 1024 * 1024;

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
std::atomic<uint64_t> g_duplicateGroups{0}, g_unknownClients{0};
std::atomic<uint64_t> g_halclientDeaths{0}, g_zelDeaths{0};

void countingLogger(const __android_logger_data* data, const char* message) {
    if (message == nullptr || data->tag == nullptr) return;
    if (std::strcmp(message, "Same callback interface registered already") == 0) {
        g_duplicateGroups++;
    } else if (std::strcmp(message, "callback not found in request_callbacks") == 0) {
        g_unknownClients++;
    } else if (std::strcmp(message, "Torq HAL Service died") == 0) {
        (std::strcmp(data->tag, "[ZEL_CLIENT]") == 0 ? g_zelDeaths : g_halclientDeaths)++;
    }
}

// A failure seen by any thread; the first ones are reported in full.
std::atomic<uint64_t> g_failures{0};
void fail(const std::string& what) {
    if (g_failures++ < 25) ADD_FAILURE() << what;
}

// ---- The HAL ------------------------------------------------------------------------------
// It answers fast and predictably so that callers can tell a valid result from garbage: handles
// come from one counter that never repeats across restarts; a callback request is answered
// before the reply with its own records (except every kWithholdEvery-th handle: never); state
// answers and listening notices carry reported() for each id or path; other int methods return
// 0. It records nothing, so its memory stays flat however long it runs.

std::atomic<int32_t> g_lastHandle{0};
std::atomic<int> g_halDelayUs{0};  // each HAL call sleeps this long (so that the HAL starts threads)

std::string reported(int32_t id) {
    return std::to_string(id);
}
std::string reported(const std::string& path) {
    return "s:" + path;
}
bool withheld(int32_t handle) {
    return handle > 0 && handle % kWithholdEvery == 0;
}
bool validHandle(int32_t h) {
    return h >= 1 && h <= g_lastHandle.load();
}

class Service : public BnTorq {
  public:
    using Status = ndk::ScopedAStatus;
    Status init() override { return done(); }
    Status request(const TorqRequestParcel& parcel, int32_t* ret) override {
        *ret = ++g_lastHandle;
        // Oneway: queued to the client before this reply leaves, so a caller that gets the handle
        // also gets the answer.
        if (parcel.callback != nullptr && !withheld(*ret)) {
            (void)parcel.callback->onCallback(parcel.data);
        }
        return done();
    }
    Status release(int32_t, int32_t* ret) override { return done(ret); }
    Status stateRequest(const TorqRequestParcel& parcel, Records* ret) override {
        *ret = parcel.data;
        for (TorqRequestData& r : *ret) r.value = r.path ? reported(*r.path) : reported(r.id);
        return done();
    }
    Status listeningRegister(const TorqRequestParcel& parcel,
                             const std::shared_ptr<ITorqCallback>& callback, int32_t* ret) override {
        Records notice;
        (void)stateRequest(parcel, &notice);
        return listen(callback, notice, ret);
    }
    Status listeningUnregister(int32_t, int32_t* ret) override { return done(ret); }
    Status propertyGet(const std::string&, std::string*) override { return done(); }
    Status propertySet(const std::string&, const std::string&, int32_t* ret) override {
        return done(ret);
    }
    Status thermalListeningRegister(const std::vector<int32_t>&,
                                    const std::shared_ptr<ITorqCallback>& callback,
                                    int32_t* ret) override {
        return listen(callback, {}, ret);  // a notice without records reaches no caller callback
    }
    Status thermalListeningUnregister(int32_t, int32_t* ret) override { return done(ret); }
    Status notifyEvent(const TorqRequestParcel&, int32_t* ret) override { return done(ret); }
    Status setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override { return done(ret); }
    Status ruleCtl(int32_t, int32_t, const Records&, int32_t* ret) override { return done(ret); }

  private:
    static Status done(int32_t* ret = nullptr) {
        if (ret != nullptr) *ret = 0;
        if (int us = g_halDelayUs.load(); us > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(us));
        }
        return ndk::ScopedAStatus::ok();
    }
    static Status listen(const std::shared_ptr<ITorqCallback>& callback, const Records& notice,
                         int32_t* ret) {
        *ret = ++g_lastHandle;
        (void)callback->onCallback(notice);
        return done();
    }
};

// The HAL in its own emulated process. The instance stays declared from the first start on, so
// torqHalclient callers wait for the next start.
struct StressHal {
    StressHal() { pids.reserve(4096); }  // grown during a measurement, it would count as growth
    ~StressHal() {
        kill();
        binder_host::undeclareInstance(kInstance);
    }
    void start() {
        kill();
        const binder_host::ProcessId p = binder_host::createProcess("torq-hal", 4);
        bool registered = false;
        binder_host::runInProcess(p, [&] {
            service = ndk::SharedRefBase::make<Service>();
            registered = AServiceManager_addService(service->asBinder().get(), kInstance) == EX_NONE;
        });
        ASSERT_TRUE(registered) << kInstance;
        pids.push_back(p);
        starts++;
        binder_host::declareInstance(kInstance);
    }
    // The process dies as if it crashed.
    void kill() {
        if (service == nullptr) return;
        binder_host::killProcess(pids.back());
        service.reset();
    }
    // Binder objects still alive in HAL processes that died: a reference the library failed to
    // drop (an interface kept after a death) keeps the dead HAL's object alive.
    size_t deadBinders() const {
        size_t n = 0;
        for (size_t i = 0; i + 1 < pids.size(); ++i) n += binder_host::liveBinderCount(pids[i]);
        return n;
    }

    std::vector<binder_host::ProcessId> pids;  // every process it ran in, the running one last
    std::shared_ptr<BnTorq> service;           // null while dead
    int starts = 0;
};

// ---- The callers ----------------------------------------------------------------------------

std::string text(const Resources& r) {
    std::string out;
    for (const auto& x : r) out += std::to_string(x.id) + "=" + x.value.value_or("<absent>") + " ";
    return out;
}
std::string text(const Strings& values, const Strings& paths) {
    std::string out = std::to_string(values.size()) + " values: ";
    for (size_t i = 0; i < paths.size() && i < values.size(); ++i) {
        out += paths[i] + "=" + values[i] + " ";
    }
    return out;
}

// Request callbacks alive, and those the test freed because the HAL withheld their answer.
std::atomic<size_t> g_liveRequests{0}, g_freedWithheld{0};
std::atomic<bool> g_freeing{false};  // the test is freeing the clients left in request_callbacks

// What reaches a caller's callback. A listener's notices must carry reported() for each id or
// path. A request's answer must be `expected` exactly (the HAL echoes the request's records), and
// come at most once; `handle` is what the request gave. When the last client lets go of a request
// callback, its answer must have come, or the HAL was not reached, or the test is freeing the
// client of an answer the HAL withheld.
class Checker : public IClientCallback, public IClientCallbackByPath {
  public:
    explicit Checker(std::optional<std::string> expected = {}) : expected_(std::move(expected)) {
        if (expected_) g_liveRequests++;
    }
    ~Checker() override {
        if (!expected_) return;
        g_liveRequests--;
        const std::string request = "request " + std::to_string(handle.load());
        if (calls > 0) {
            if (g_freeing) fail("the answered " + request + " stayed in request_callbacks");
        } else if (handle != -1) {
            if (!g_freeing) {
                fail(request + " lost its client unanswered");
            } else if (!withheld(handle)) {
                fail(request + " never got its answer");
            } else {
                g_freedWithheld++;
            }
        }
    }
    void onCallback(Resources got) override {
        Resources notice;
        for (const auto& r : got) notice.push_back({r.id, reported(r.id)});
        check(text(got), text(notice));
    }
    void onCallback(Strings values, Strings paths) override {
        Strings notice;
        for (const auto& p : paths) notice.push_back(reported(p));
        check(text(values, paths), text(notice, paths));
    }
    std::atomic<uint64_t> calls{0};
    std::atomic<int32_t> handle{0};

  private:
    void check(const std::string& got, const std::string& notice) {
        const std::string& want = expected_ ? *expected_ : notice;
        if (got != want) fail("callback got " + got + "instead of " + want);
        if (++calls > 1 && expected_) fail("a request callback was answered twice");
    }
    const std::optional<std::string> expected_;
};

const auto g_idListener = std::make_shared<Checker>();
const auto g_pathListener = std::make_shared<Checker>();

// One front-end call: `run` must give `ok` (kHandle: a handle the HAL gave out) or the failure
// value -1; `release`, when set, gives a handle back and must give 0 or -1.
struct Call {
    const char* name;
    int32_t ok;
    std::function<int32_t(std::mt19937&)> run;
    std::function<int32_t(int32_t)> release = nullptr;
};

// torqResListeningUnRegister removes any local group (the thermal one too) whatever the HAL says,
// but gives -1 both when the HAL was not reached (group kept) and when the transaction failed
// (group gone): asking until the HAL answers settles it, and a group left behind would make the
// next registration of the same ids or paths a duplicate, which the run checks.
int32_t unlisten(int32_t handle) {
    while (hc::torqResListeningUnRegister(handle) == -1) {
    }
    return 0;
}

// Each front end, with and without callbacks (the rest of each API shares their connection and
// call code). State queries give the HAL's values on success, and touch no output on failure.
const Call kCalls[] = {
        {"torqResCtlRequest with callback", kHandle,
         [](std::mt19937& rng) {
             const std::string v = std::to_string(rng());
             Resources res{{0x010108A0, v}, {0, std::nullopt}};
             auto a = std::make_shared<Checker>(text({{0x010108A0, v}, {0, std::string()}}));
             return a->handle = hc::torqResCtlRequest(-1, 100, res, -1, 1, 0, a);
         },
         hc::torqResCtlRelease},
        {"torq_resctl_request_with_callback_by_path", kHandle,
         [](std::mt19937& rng) {
             Strings paths{"/stress/p1", "/stress/p2"}, values{"1", std::to_string(rng())};
             auto a = std::make_shared<Checker>(text(values, paths));
             return a->handle = hc::torq_resctl_request_with_callback_by_path(-1, 200, paths,
                                                                              values, -1, 1, 0, a);
         }},
        {"torqResStateRequest", 1,
         [](std::mt19937&) {
             Resources ids{{0x010108A0, "1"}}, out;
             const int32_t n = hc::torqResStateRequest(ids, 0, out);
             if (text(out) != (n == 1 ? text({{0x010108A0, reported(0x010108A0)}}) : "")) {
                 fail("torqResStateRequest output " + text(out));
             }
             return n;
         }},
        {"torqDumpRunMap", 0, [](std::mt19937&) { return hc::torqDumpRunMap(); }},
        {"ZelEventAcquire", kHandle,
         [](std::mt19937& rng) {
             // The command id picks the kind: resource or platform acquisition, or an event.
             const auto cmd = static_cast<int32_t>(rng() % 199);
             return ZelEventAcquire(cmd, "com.stress", "stress", 100, {{0x010108A0, "1"}});
         },
         [](int32_t h) { return ZelRelease(h), 0; }},
        {"ZelMutiResStateRequest", 1,
         [](std::mt19937&) {
             std::vector<ZelClient::Resource> res{{0x010108A0, "x"}};
             const int32_t n = ZelMutiResStateRequest(res);
             if (res[0].value != (n == 1 ? reported(0x010108A0) : "x")) {
                 fail("ZelMutiResStateRequest value " + res[0].value.value_or("<absent>"));
             }
             return n;
         }},
        {"ZelGetPMStatus", 2, [](std::mt19937&) { return ZelGetPMStatus(2); }},
        // -2: the HAL was reached but the transaction failed.
        {"zelInit", 0, [](std::mt19937&) { return std::max(zelInit(), -1); }},
        {"ZelEventAcquireWrapper", kHandle,
         [](std::mt19937&) {
             return ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN", "scene", "stress", 100);
         },
         [](int32_t h) { return ZelReleaseWapper(h), 0; }},
        {"ZelNotifyWapper", 0,
         [](std::mt19937&) { return ZelNotifyWapper("stress", 130, 1, 0, 0, 0, "1-200,2-300"); }},
};

// Listening: each registration is unregistered at once.
const Call kListening[] = {
        {"torqResListeningRegister", kHandle,
         [](std::mt19937&) {
             Resources ids{{0x01010B10, "1"}, {0x01010B20, "2"}};
             return hc::torqResListeningRegister(ids, 1, g_idListener);
         },
         unlisten},
        {"torq_res_listening_register_by_path", kHandle,
         [](std::mt19937&) {
             return hc::torq_res_listening_register_by_path({"/stress/a", "/stress/b"}, 2,
                                                            g_pathListener);
         },
         unlisten},
        {"torqThermalListeningRegister", kHandle,
         [](std::mt19937&) {
             return hc::torqThermalListeningRegister({3, 5, 7}, g_idListener);
         },
         unlisten},
};

std::atomic<bool> g_stop{false};
// Callers hold the gate shared around each call, and keep off it while the driver closes it to
// measure (with the HAL up, or torqHalclient callers would wait for it).
std::shared_mutex g_gate;
std::atomic<bool> g_closing{false};

// `got` must be `ok` (kHandle: a handle the HAL gave out) or the failure value.
int32_t result(const char* name, int32_t got, int32_t ok) {
    if (got != -1 && (ok == kHandle ? !validHandle(got) : got != ok)) {
        fail(std::string(name) + " gave " + std::to_string(got));
    }
    return got;
}

// Only caller 0 uses the listening registry: the listening calls take the HAL lock exclusively
// while holding listening_groups_mutex on their failure path, and torqThermalListeningRegister
// appends to the registry without the mutex, so the registry gets one user at a time.
void caller(size_t index) {
    std::mt19937 rng(static_cast<uint32_t>(1234 + index));
    for (uint64_t round = 1; !g_stop; ++round) {
        while (g_closing) std::this_thread::sleep_for(milliseconds(1));
        std::shared_lock<std::shared_mutex> open(g_gate);
        const Call& call = index == 0 && round % 4 == 0 ? kListening[rng() % std::size(kListening)]
                                                        : kCalls[rng() % std::size(kCalls)];
        const int32_t h = result(call.name, call.run(rng), call.ok);
        if (call.release && h != -1) result(call.name, call.release(h), 0);
    }
}

// With every caller parked and the binder world drained, request_callbacks must hold exactly the
// clients whose answer never came and never can (the HAL died or withheld it). They are freed
// here, so that the heap measured next holds the library's own memory alone.
size_t snapshot(const StressHal& hal, size_t binderBase) {
    EXPECT_TRUE(binder_host::drain(10000)) << "binder work still pending";
    {
        std::vector<std::shared_ptr<TorqCallbackClient>> unanswered;
        {
            std::lock_guard<std::mutex> lock(request_callback_mutex);
            unanswered.assign(request_callbacks.begin(), request_callbacks.end());
            request_callbacks.clear();  // keeps its capacity
        }
        EXPECT_EQ(unanswered.size(), g_liveRequests.load()) << "request_callbacks";
        g_freeing = true;
    }
    // The unanswered clients were plain objects (the HAL dropped its reference when it died or
    // never got one), so no binder object of this process outlives the calls.
    EXPECT_TRUE(binder_host::drain(10000));
    g_freeing = false;
    EXPECT_EQ(g_liveRequests.load(), 0u) << "request callbacks held outside request_callbacks";
    EXPECT_EQ(binder_host::liveBinderCount(binder_host::kDefaultProcess), binderBase)
            << "binder objects of this process after " << hal.starts - 1 << " restarts";
    EXPECT_EQ(hal.deadBinders(), 0u) << "objects of dead HAL processes are still referenced";
    return heapBytes();
}

// What a restart leaves behind when only a few calls are made (the host runtime's record of the
// dead process, the death recipients each front end makes per connection): every caller thread
// calls each front end once, through a HAL slow enough to start all its threads as in the storm.
double quietRestartCost(StressHal& hal, int restarts) {
    g_halDelayUs = 1000;
    size_t before = 0;
    for (int i = -2; i < restarts; ++i) {
        hal.start();
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
    g_halDelayUs = 0;
    return (static_cast<double>(heapBytes()) - static_cast<double>(before)) / restarts;
}

TEST(Stress, ThreeFrontEndsSurviveRepeatedHalDeaths) {
    binder_host::reset();
    __android_log_set_logger(countingLogger);
    const size_t binderBase = binder_host::liveBinderCount(binder_host::kDefaultProcess);
    StressHal hal;

    const double perRestart = quietRestartCost(hal, 4);
    const int quietRestarts = hal.starts - 1;

    std::vector<std::thread> callers;
    for (size_t i = 0; i < kCallers; ++i) callers.emplace_back(caller, i);
    std::mt19937 rng(42);
    std::vector<size_t> heaps;  // after the warm-up and after each phase
    for (int restart = 1; restart <= kWarmupRestarts + kPhases * kPhaseRestarts; ++restart) {
        std::this_thread::sleep_for(milliseconds(kUpMinMs + rng() % (kUpMaxMs - kUpMinMs + 1)));
        hal.kill();
        std::this_thread::sleep_for(milliseconds(rng() % (kDownMaxMs + 1)));
        hal.start();
        if (restart >= kWarmupRestarts && (restart - kWarmupRestarts) % kPhaseRestarts == 0) {
            g_closing = true;
            {
                std::unique_lock<std::shared_mutex> closed(g_gate);
                heaps.push_back(snapshot(hal, binderBase));
            }
            g_closing = false;
        }
    }

    // Stop the callers while the HAL is up (a torqHalclient caller may be waiting for it).
    g_stop = true;
    for (std::thread& t : callers) t.join();

    // The last restart, with nobody calling: once the death notices are in, the first call of
    // each front end must reach the new HAL.
    hal.kill();
    ASSERT_TRUE(binder_host::drain(10000));
    hal.start();
    Resources res{{0x010108A0, "1"}};
    EXPECT_TRUE(validHandle(hc::torqResCtlRequest(100, res, 0)))
            << "torqHalclient's first call after the last restart";
    EXPECT_TRUE(validHandle(ZelEventAcquire(0, "com.stress", "stress", 100, {})))
            << "the flat API's first call after the last restart";
    EXPECT_TRUE(validHandle(ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "s", "i", 1)))
            << "the wrappers' first call after the last restart";
    const int32_t h = hc::torqResListeningRegister(res, 0, g_idListener);
    EXPECT_TRUE(validHandle(h)) << "listening after the last restart";
    EXPECT_EQ(hc::torqResListeningUnRegister(h), 0);
    snapshot(hal, binderBase);
    // Let the last death notices run before the test ends: at exit the library's globals go away
    // while binder threads may still be delivering them.
    hal.kill();
    binder_host::drain(10000);
    __android_log_set_logger(__android_log_stderr_logger);

    std::printf("stress: %d restarts under load, %zu withheld answers, quiet restart %.0f B\n",
                hal.starts - 1 - quietRestarts, g_freedWithheld.load(), perRestart);
    EXPECT_EQ(g_failures.load(), 0u) << "invalid results";
    EXPECT_GE(hal.starts - 1 - quietRestarts, 50) << "restarts under load";
    EXPECT_EQ(g_duplicateGroups.load(), 0u) << "a listening group outlived its unregistration";
    EXPECT_EQ(g_unknownClients.load(), 0u) << "an answer found no client in request_callbacks";
    EXPECT_GT(g_halclientDeaths.load(), 0u) << "no HAL death while torqHalclient was connected";
    EXPECT_GT(g_zelDeaths.load(), 0u) << "no HAL death while the flat API was connected";
    EXPECT_GT(g_freedWithheld.load(), 0u) << "no withheld answer: the accounting went untested";
    EXPECT_EQ(g_idListener.use_count(), 1) << "a listening client outlived its group";
    EXPECT_EQ(g_pathListener.use_count(), 1) << "a listening client outlived its group";
    EXPECT_GT(g_idListener->calls.load(), 0u);
    EXPECT_GT(g_pathListener->calls.load(), 0u);

    // Heap: a busy restart may leave more than the calibrated quiet one (racing flat-API connects
    // each make a death recipient; the work queued when the HAL died varies), and request_callbacks
    // may double its capacity. Now and then one phase sees a single step of a few hundred kB that
    // later phases neither give back nor repeat (a thread's high-water mark). A leak per call or
    // per restart grows every phase.
    const double budget = kPhaseRestarts * (2 * perRestart + kRestartMargin) + kFixedMargin;
    int overBudget = 0;
    for (size_t i = 1; i < heaps.size(); ++i) {
        const double growth = static_cast<double>(heaps[i]) - static_cast<double>(heaps[i - 1]);
        std::printf("stress: phase %zu: heap %+.0f B, %.0f B/restart (budget %.0f)\n", i, growth,
                    growth / kPhaseRestarts, budget / kPhaseRestarts);
        if (growth > budget) ++overBudget;
        EXPECT_LE(growth, budget + kOneStep) << "heap grew with the restarts of phase " << i;
    }
    EXPECT_LE(overBudget, 1) << "the heap grew beyond its budget in " << overBudget << " phases";
}

}  // namespace

// The heap figures count bytes in use. glibc's per-thread caches keep freed blocks that count as
// in use, and every restart brings new binder threads with caches of their own, which would blur
// what the library does. So the program starts itself again with the caches switched off.
int main(int argc, char** argv) {
#ifndef STRESS_SANITIZED
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
        execv("/proc/self/exe", argv);
        std::perror("stress_tests: execv");  // carries on with the caches
    }
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
