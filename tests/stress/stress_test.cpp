// Eight caller threads drive the three front ends (torqHalclient, the flat Zel* API and the action
// wrappers) while the HAL process is killed and started again, over and over. What must hold:
//   - nothing crashes or hangs: a watchdog aborts with a report when no call returns for too long;
//   - every call gives a valid result or the documented failure value, never anything else;
//   - after the last restart, the first call of each front end succeeds;
//   - request_callbacks grows by exactly the callback requests that made a client and never got
//     their answer (the leak the library keeps), and by nothing else;
//   - nothing else grows with the number of restarts: binder objects per process, and heap bytes
//     between the middle and the end of the run.
// Sanitizer builds run fewer restarts (never fewer than 50) so that CI time holds.

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
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "StressHal.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define STRESS_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define STRESS_SANITIZED 1
#endif
#ifdef STRESS_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace stress {
namespace {

using Clock = std::chrono::steady_clock;
using Resources = std::list<ZelClient::Resource>;
using std::chrono::milliseconds;

constexpr size_t kCallers = 8;
// Heap margins of the growth check (see the end of the test).
constexpr double kRestartMargin = 2048;
constexpr double kFixedMargin = 64 * 1024;

// ---- Run size ------------------------------------------------------------------------------

struct RunSize {
    int warmupRestarts;    // before the first memory measurement
    int phaseRestarts;     // between measurements; two phases
    int upMinMs, upMaxMs;  // how long the HAL lives
    int downMaxMs;         // how long it stays dead
    int stallSeconds;      // the watchdog's patience
};

RunSize runSize() {
#ifdef STRESS_SANITIZED
    RunSize size{4, 24, 150, 300, 15, 120};
#else
    RunSize size{10, 60, 200, 400, 15, 30};
#endif
    // For local runs: TORQ_STRESS_PHASE_RESTARTS=N changes the phase length.
    // Never fewer than 50 restarts in all.
    if (const char* env = std::getenv("TORQ_STRESS_PHASE_RESTARTS")) {
        size.phaseRestarts = std::max((50 - size.warmupRestarts + 1) / 2, std::atoi(env));
    }
    return size;
}

// ---- Memory --------------------------------------------------------------------------------

// Bytes the program holds on the heap right now.
size_t heapBytes() {
#ifdef STRESS_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

size_t rssBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// ---- Log: count error lines, print nothing -----------------------------------------------

std::mutex g_logMutex;
std::map<std::string, uint64_t> g_errorLines;
std::atomic<uint64_t> g_logLines{0};

void countingLogger(const __android_logger_data* data, const char* message) {
    g_logLines++;
    if (data->priority < ANDROID_LOG_ERROR || message == nullptr) return;
    std::lock_guard<std::mutex> lock(g_logMutex);
    g_errorLines[std::string(data->tag != nullptr ? data->tag : "") + ": " + message]++;
}

// Error lines with this text, under any tag.
uint64_t errorCount(const std::string& text) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    uint64_t n = 0;
    for (const auto& [line, count] : g_errorLines) {
        if (line.size() >= text.size() + 2 &&
            line.compare(line.size() - text.size() - 2, std::string::npos, ": " + text) == 0) {
            n += count;
        }
    }
    return n;
}

uint64_t errorCount(const std::string& tag, const std::string& text) {
    std::lock_guard<std::mutex> lock(g_logMutex);
    auto it = g_errorLines.find(tag + ": " + text);
    return it == g_errorLines.end() ? 0 : it->second;
}

// ---- Failures found by worker threads -----------------------------------------------------

std::mutex g_failMutex;
std::vector<std::string> g_failures;
std::atomic<uint64_t> g_failureCount{0};

void fail(const std::string& what) {
    g_failureCount++;
    std::lock_guard<std::mutex> lock(g_failMutex);
    if (g_failures.size() < 25) g_failures.push_back(what);
}

// ---- Caller callbacks that check what reaches them -----------------------------------------

struct AnswerState {
    std::atomic<int> answers{0};
    std::atomic<bool> garbage{false};
};

std::string describe(const Resources& r) {
    std::ostringstream out;
    for (const auto& res : r) out << res.id << "=" << (res.value ? *res.value : "<absent>") << " ";
    return out.str();
}

bool sameResources(const Resources& a, const Resources& b) {
    if (a.size() != b.size()) return false;
    auto ib = b.begin();
    for (const auto& ra : a) {
        if (ra.id != ib->id || ra.value != ib->value) return false;
        ++ib;
    }
    return true;
}

// The answer to one id request: the HAL echoes the request's records.
class IdAnswer : public IClientCallback, public AnswerState {
  public:
    explicit IdAnswer(Resources expected) : expected_(std::move(expected)) {}
    void onCallback(Resources resources) override {
        if (!sameResources(resources, expected_)) {
            garbage = true;
            fail("id answer: got " + describe(resources) + "expected " + describe(expected_));
        }
        answers++;
    }

  private:
    const Resources expected_;
};

class PathAnswer : public IClientCallbackByPath, public AnswerState {
  public:
    PathAnswer(std::vector<std::string> values, std::vector<std::string> paths)
        : values_(std::move(values)), paths_(std::move(paths)) {}
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        if (values != values_ || paths != paths_) {
            garbage = true;
            fail("path answer: wrong values or paths");
        }
        answers++;
    }

  private:
    const std::vector<std::string> values_, paths_;
};

// Listening notices: every id or path must come with the HAL's notice value for it.
class IdListener : public IClientCallback {
  public:
    void onCallback(Resources resources) override {
        for (const auto& r : resources) {
            if (!r.value || *r.value != notifyValue(r.id))
                fail("id notice: " + describe(resources));
        }
        notices++;
    }
    std::atomic<uint64_t> notices{0};
};

class PathListener : public IClientCallbackByPath {
  public:
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        if (values.size() != paths.size()) fail("path notice: sizes differ");
        for (size_t i = 0; i < values.size() && i < paths.size(); ++i) {
            if (values[i] != notifyValue(paths[i])) fail("path notice: " + values[i]);
        }
        notices++;
    }
    std::atomic<uint64_t> notices{0};
};

// A callback request whose fate is not known yet. `owner` shares the callback's control block:
// its use count is 1 plus the number of TorqCallbackClient objects alive that hold the callback.
struct Pending {
    std::shared_ptr<AnswerState> owner;
    int32_t handle;
    bool answerWithheld;  // the HAL keeps the answer to this handle
};

// ---- The run -------------------------------------------------------------------------------

struct CallerState {
    std::atomic<uint64_t> calls{0};       // library entry points called
    std::atomic<uint64_t> failures{0};    // calls that returned the failure value
    std::atomic<const char*> op{"idle"};  // what the thread is doing, for the watchdog
    std::atomic<int64_t> opSince{0};      // ms since start when `op` began
    std::vector<Pending> pending;         // touched by its thread, or by the driver while parked
    uint64_t callbackRequests = 0;
};

class StressRun {
  public:
    explicit StressRun(StressHal& hal) : hal_(hal), start_(Clock::now()) {}

    StressHal& hal_;
    const Clock::time_point start_;
    CallerState callers_[kCallers];
    std::atomic<bool> stop_{false};
    std::atomic<uint64_t> progress_{0};
    std::atomic<const char*> driverStep_{"start"};

    std::mutex parkMutex_;
    std::condition_variable parkCv_;
    std::atomic<bool> pause_{false};  // written under parkMutex_
    size_t parked_ = 0;

    std::shared_ptr<IdListener> idListener_ = std::make_shared<IdListener>();
    std::shared_ptr<PathListener> pathListener_ = std::make_shared<PathListener>();

    int64_t nowMs() const {
        return std::chrono::duration_cast<milliseconds>(Clock::now() - start_).count();
    }

    // ---- result checks ----

    bool validHandle(int32_t h) const { return h >= 1 && h <= hal_.issuedHandles(); }

    void handleOrFailure(CallerState& c, int32_t h, const char* what) {
        if (h == -1) {
            c.failures++;
        } else if (!validHandle(h)) {
            fail(std::string(what) + " returned " + std::to_string(h));
        }
    }

    void valueOrFailure(CallerState& c, int32_t got, int32_t ok, const char* what) {
        if (got == -1) {
            c.failures++;
        } else if (got != ok) {
            fail(std::string(what) + " returned " + std::to_string(got));
        }
    }

    // ---- the callers ----

    void enter(CallerState& c, const char* op) {
        c.opSince = nowMs();
        c.op = op;
    }

    void done(CallerState& c, int calls) {
        c.calls += calls;
        c.op = "idle";
        progress_++;
    }

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

    void caller(size_t index) {
        CallerState& c = callers_[index];
        std::mt19937 rng(static_cast<uint32_t>(1234 + index));
        uint64_t round = 0;
        while (parkIfAsked()) {
            if (index == 0) {
                listenerRound(c, rng);
            } else {
                callerRound(c, rng);
            }
            if (++round % 8 == 0) prune(c);
        }
    }

    // Only caller 0 uses the listening registry: the listening calls hold listening_groups_mutex
    // while taking the HAL lock exclusively on their failure path, and
    // torqThermalListeningRegister appends to the registry without the mutex. Both are kept as
    // they are, so the registry gets one user at a time.
    void listenerRound(CallerState& c, std::mt19937& rng) {
        switch (rng() % 4) {
            case 0: {
                enter(c, "torqResListeningRegister");
                Resources ids{{0x01010B10, "1"}, {0x01010B20, "2"}};
                int32_t h = torqHalclient::torqResListeningRegister(ids, 1, idListener_);
                handleOrFailure(c, h, "torqResListeningRegister");
                done(c, 1);
                if (h != -1) unregisterUntilAnswered(c, h);
                break;
            }
            case 1: {
                enter(c, "torq_res_listening_register_by_path");
                std::vector<std::string> paths{"/stress/a", "/stress/b"};
                int32_t h =
                        torqHalclient::torq_res_listening_register_by_path(paths, 2, pathListener_);
                handleOrFailure(c, h, "torq_res_listening_register_by_path");
                done(c, 1);
                if (h != -1) unregisterUntilAnswered(c, h);
                break;
            }
            case 2: {
                enter(c, "torq_res_listening_register_map_by_path");
                std::map<std::string, std::string> paths{{"/stress/m", "1"}};
                int32_t h = torqHalclient::torq_res_listening_register_map_by_path(paths, 3,
                                                                                   pathListener_);
                handleOrFailure(c, h, "torq_res_listening_register_map_by_path");
                done(c, 1);
                if (h != -1) unregisterUntilAnswered(c, h);
                break;
            }
            default: {
                enter(c, "torqThermalListeningRegister");
                std::vector<int32_t> ids{3, 5, 7};
                int32_t h = torqHalclient::torqThermalListeningRegister(ids, idListener_);
                handleOrFailure(c, h, "torqThermalListeningRegister");
                done(c, 1);
                if (h != -1) {
                    enter(c, "torqThermalListeningUnregister");
                    valueOrFailure(c, torqHalclient::torqThermalListeningUnregister(h), 0,
                                   "torqThermalListeningUnregister");
                    done(c, 1);
                    // The thermal group stays in the registry until this.
                    unregisterUntilAnswered(c, h);
                }
                break;
            }
        }
        // The listener also makes ordinary calls, so that it is not idle between rounds.
        callerRound(c, rng);
    }

    // torqResListeningUnRegister removes the local group whatever the HAL says, but gives -1
    // both when the HAL was not reached (group kept) and when the transaction failed (group
    // gone). Asking until the HAL answers settles it; asking again for a removed group is
    // harmless. A group left behind would make the next registration of the same ids or paths
    // a duplicate, which the run checks at the end.
    void unregisterUntilAnswered(CallerState& c, int32_t h) {
        for (;;) {
            enter(c, "torqResListeningUnRegister");
            int32_t r = torqHalclient::torqResListeningUnRegister(h);
            valueOrFailure(c, r, 0, "torqResListeningUnRegister");
            done(c, 1);
            if (r == 0) return;
        }
    }

    void track(CallerState& c, std::shared_ptr<AnswerState> owner, int32_t h) {
        c.callbackRequests++;
        const bool kept = h != -1 && (withheld(h) || hal_.counters().withholdAll.load());
        c.pending.push_back({std::move(owner), h, kept});
    }

    void callerRound(CallerState& c, std::mt19937& rng) { callerOp(c, rng, rng() % 24); }

    void callerOp(CallerState& c, std::mt19937& rng, unsigned pick) {
        const int32_t tag = static_cast<int32_t>(rng() % 100);
        switch (pick) {
            // --- torqHalclient ---
            case 0: {
                enter(c, "torqResCtlRequest");
                Resources res{{0x010108A0, "1200000"}, {0x010108B0, "900"}};
                int32_t h = torqHalclient::torqResCtlRequest(500, res, tag);
                handleOrFailure(c, h, "torqResCtlRequest");
                int calls = 1;
                if (h != -1) {
                    valueOrFailure(c, torqHalclient::torqResCtlRelease(h), 0, "torqResCtlRelease");
                    ++calls;
                }
                done(c, calls);
                break;
            }
            case 1:
            case 2: {
                enter(c, "torqResCtlRequest with callback");
                Resources res{{0x010108A0, std::to_string(tag)}, {0, std::nullopt}};
                Resources expected{{0x010108A0, std::to_string(tag)}, {0, std::string()}};
                auto answer = std::make_shared<IdAnswer>(expected);
                int32_t h = torqHalclient::torqResCtlRequest(-1, 100, res, -1, 1, tag, answer);
                handleOrFailure(c, h, "torqResCtlRequest with callback");
                track(c, answer, h);
                int calls = 1;
                if (h != -1 && rng() % 2 == 0) {
                    valueOrFailure(c, torqHalclient::torqResCtlRelease(h), 0, "torqResCtlRelease");
                    ++calls;
                }
                done(c, calls);
                break;
            }
            case 3: {
                enter(c, "torqSACtlRequest");
                int32_t h = torqHalclient::torqSACtlRequest(300, 0x0101A000, tag);
                handleOrFailure(c, h, "torqSACtlRequest");
                int calls = 1;
                if (h != -1) {
                    valueOrFailure(c, torqHalclient::torqSACtlRelease(h), 0, "torqSACtlRelease");
                    ++calls;
                }
                done(c, calls);
                break;
            }
            case 4: {
                enter(c, "torqSACtlRequest with callback");
                auto answer = std::make_shared<IdAnswer>(Resources{{0x0101A010, std::string()}});
                int32_t h = torqHalclient::torqSACtlRequest(-1, 300, 0x0101A010, -1, 0, tag, answer);
                handleOrFailure(c, h, "torqSACtlRequest with callback");
                track(c, answer, h);
                done(c, 1);
                break;
            }
            case 5: {
                enter(c, "torq_resctl_request_with_callback_by_path");
                std::vector<std::string> paths{"/stress/p1", "/stress/p2"};
                std::vector<std::string> values{"1", std::to_string(tag)};
                auto answer = std::make_shared<PathAnswer>(values, paths);
                int32_t h = torqHalclient::torq_resctl_request_with_callback_by_path(
                        -1, 200, paths, values, -1, 1, tag, answer);
                handleOrFailure(c, h, "torq_resctl_request_with_callback_by_path");
                track(c, answer, h);
                done(c, 1);
                break;
            }
            case 6: {
                enter(c, "torq_resctl_request_by_path");
                int32_t h = torqHalclient::torq_resctl_request_by_path(-1, 200, {"/stress/p1"},
                                                                       {"5"}, -1, 0, tag);
                handleOrFailure(c, h, "torq_resctl_request_by_path");
                done(c, 1);
                break;
            }
            case 7: {
                enter(c, "torqResStateRequest");
                Resources ids{{0x010108A0, "1"}, {0x010108B0, "1"}, {0x010108C0, "1"}};
                Resources out;
                int32_t n = torqHalclient::torqResStateRequest(ids, tag, out);
                valueOrFailure(c, n, 3, "torqResStateRequest");
                Resources expected;
                if (n == 3) {
                    for (const auto& r : ids) expected.push_back({r.id, stateValue(r.id)});
                }
                if (!sameResources(out, expected))
                    fail("torqResStateRequest output " + describe(out));
                done(c, 1);
                break;
            }
            case 8: {
                enter(c, "torq_res_state_request_by_path");
                std::vector<std::string> out;
                int32_t n = torqHalclient::torq_res_state_request_by_path(
                        {"/stress/s1", "/stress/s2"}, {"1", "2"}, tag, out);
                valueOrFailure(c, n, 2, "torq_res_state_request_by_path");
                std::vector<std::string> expected;
                if (n == 2) expected = {stateValue("/stress/s1"), stateValue("/stress/s2")};
                if (out != expected) fail("torq_res_state_request_by_path output");
                done(c, 1);
                break;
            }
            case 9: {
                enter(c, "torq_res_state_request_map_by_path");
                std::map<std::string, std::string> out;
                int32_t n = torqHalclient::torq_res_state_request_map_by_path(
                        {{"/stress/s1", "1"}, {"/stress/s2", "2"}}, tag, out);
                valueOrFailure(c, n, 2, "torq_res_state_request_map_by_path");
                std::map<std::string, std::string> expected;
                if (n == 2) {
                    expected = {{"/stress/s1", stateValue("/stress/s1")},
                                {"/stress/s2", stateValue("/stress/s2")}};
                }
                if (out != expected) fail("torq_res_state_request_map_by_path output");
                done(c, 1);
                break;
            }
            case 10: {
                enter(c, "torqThermalNotify");
                Resources levels{{1, "3"}, {2, "0"}};
                valueOrFailure(c, torqHalclient::torqThermalNotify(levels, tag), 0,
                               "torqThermalNotify");
                done(c, 1);
                break;
            }
            case 11: {
                enter(c, "torqDump*/torqPropertySet/torq_init");
                valueOrFailure(c, torqHalclient::torqDumpRunMap(), 0, "torqDumpRunMap");
                valueOrFailure(c, torqHalclient::torqHistoryRequestRecordOn(), 0,
                               "torqHistoryRequestRecordOn");
                valueOrFailure(c, torqHalclient::torqPropertySet("stress.prop", "1"), 0,
                               "torqPropertySet");
                torqHalclient::torq_init();
                done(c, 4);
                break;
            }
            // --- flat API ---
            case 12:
            case 13: {
                enter(c, "ZelEventAcquire");
                std::vector<ZelClient::Resource> res{{0x010108A0, "1"}};
                int32_t h = ZelEventAcquire(static_cast<int32_t>(rng() % 199), "com.stress",
                                            "stress", 100, rng() % 2 ? res : decltype(res){});
                handleOrFailure(c, h, "ZelEventAcquire");
                int calls = 1;
                if (h != -1) {
                    ZelRelease(h);
                    ++calls;
                }
                done(c, calls);
                break;
            }
            case 14: {
                enter(c, "ZelResAcquire/ZelPlatformResAcquire");
                std::vector<ZelClient::Resource> res{{0x010108A0, "1"}, {0x010108B0, "2"}};
                handleOrFailure(c, ZelResAcquire(res, 0, "stress", 100), "ZelResAcquire");
                handleOrFailure(c, ZelPlatformResAcquire(res, 0, "stress", "com.stress", 100),
                                "ZelPlatformResAcquire");
                done(c, 2);
                break;
            }
            case 15: {
                enter(c, "ZelNotify/setRelatedSysInfo/zelRuleCtl");
                handleOrFailure(c, ZelNotify(3, 7, {10, 20}), "ZelNotify");
                valueOrFailure(c, setRelatedSysInfo(1, 1LL << 40), 0, "setRelatedSysInfo");
                valueOrFailure(c, zelRuleCtl(200, 1, {{0x01011040, "1"}}), 0, "zelRuleCtl");
                done(c, 3);
                break;
            }
            case 16: {
                enter(c, "ZelMutiResStateRequest");
                std::vector<ZelClient::Resource> res{{0x010108A0, "x"}, {0x010108B0, "x"}};
                int32_t n = ZelMutiResStateRequest(res);
                valueOrFailure(c, n, 2, "ZelMutiResStateRequest");
                const std::string a = n == 2 ? stateValue(0x010108A0) : "x";
                const std::string b = n == 2 ? stateValue(0x010108B0) : "x";
                if (res[0].value != a || res[1].value != b) fail("ZelMutiResStateRequest values");
                done(c, 1);
                break;
            }
            case 17: {
                enter(c, "ZelResStateRequest");
                std::string value = "unchanged";
                ZelResStateRequest(0x010108C0, value);
                if (value != "unchanged" && value != stateValue(0x010108C0)) {
                    fail("ZelResStateRequest value " + value);
                }
                done(c, 1);
                break;
            }
            case 18: {
                enter(c, "ZelGetHistory/ZelGetPMStatus/zelInit");
                std::string history = "unchanged";
                int32_t r = ZelGetHistory(history);
                valueOrFailure(c, r, 0, "ZelGetHistory");
                if (history != (r == 0 ? kHistory : "unchanged")) {
                    fail("ZelGetHistory text " + history);
                }
                valueOrFailure(c, ZelGetPMStatus(2), kPmStatus, "ZelGetPMStatus");
                int32_t init = zelInit();
                if (init != 0 && init != -1 && init != -2) {
                    fail("zelInit returned " + std::to_string(init));
                }
                if (init != 0) c.failures++;
                done(c, 3);
                break;
            }
            // --- action wrappers ---
            case 19:
            case 20: {
                enter(c, "ZelEventAcquireWrapper");
                int32_t h =
                        ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN", "scene", "stress", 100);
                handleOrFailure(c, h, "ZelEventAcquireWrapper");
                int calls = 1;
                if (h != -1) {
                    ZelReleaseWapper(h);
                    ++calls;
                }
                done(c, calls);
                break;
            }
            default: {
                enter(c, "ZelNotifyWapper");
                struct Notice {
                    int src, type, param;
                    const char* data;
                };
                static const Notice kNotices[] = {
                        {1, 1, 0, ""},
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
                        {4, 1, 0, ""},
                };
                const Notice& n = kNotices[rng() % (sizeof(kNotices) / sizeof(kNotices[0]))];
                int r = ZelNotifyWapper("stress", n.src, n.type, n.param, 0, 0, n.data);
                if (r != 0) fail("ZelNotifyWapper returned " + std::to_string(r));
                done(c, 1);
                break;
            }
        }
    }

    // Settles the callback requests whose fate is known; keeps the others.
    void prune(CallerState& c) {
        auto kept = c.pending.begin();
        for (auto it = c.pending.begin(); it != c.pending.end(); ++it) {
            // The holders first: a client counts the answer before it goes away, so once the
            // count shows it gone (the fence pairs with the count's release), the answer shows.
            const long users = it->owner.use_count();
            std::atomic_thread_fence(std::memory_order_acquire);
            const int answers = it->owner->answers.load();
            if (answers > 1)
                fail("a request callback was answered " + std::to_string(answers) + " times");
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

    // ---- calibration ----

    double calibrateLeakCost(int leaks) {
        static const unsigned kKinds[] = {1, 2, 4, 5};  // the callback requests of callerOp
        CallerState& c = callers_[0];
        c.pending.reserve(c.pending.size() + 2 * static_cast<size_t>(leaks) + 16);
        std::mt19937 rng(7);
        hal_.counters().withholdAll = true;
        for (unsigned i = 0; i < 8; ++i) callerOp(c, rng, kKinds[i % 4]);
        binder_host::drain(10000);
        const size_t before = heapBytes();
        for (int i = 0; i < leaks; ++i) callerOp(c, rng, kKinds[i % 4]);
        binder_host::drain(10000);
        const size_t after = heapBytes();
        hal_.counters().withholdAll = false;
        return (static_cast<double>(after) - static_cast<double>(before)) / leaks;
    }

    // Restarts with a few calls from every caller thread at once after each, through a HAL slow
    // enough to start all its binder threads, as in the storm.
    double calibrateRestartCost(int restarts) {
        auto fewCalls = [this] {
            hal_.counters().delayUs = 1000;
            std::vector<std::thread> threads;
            for (size_t i = 0; i < kCallers; ++i) {
                threads.emplace_back([] {
                    Resources res{{0x010108A0, "1"}};
                    (void)torqHalclient::torqResCtlRequest(100, res, 0);
                    (void)ZelEventAcquire(1, "com.stress", "stress", 100, {});
                    (void)ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "s", "i", 1);
                });
            }
            for (std::thread& t : threads) t.join();
            hal_.counters().delayUs = 0;
        };
        size_t before = 0;
        for (int i = -2; i < restarts; ++i) {
            hal_.kill();
            hal_.start();
            fewCalls();
            binder_host::drain(10000);
            if (i == -1) before = heapBytes();
        }
        return (static_cast<double>(heapBytes()) - static_cast<double>(before)) / restarts;
    }

    // ---- the driver ----

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

    struct Snapshot {
        int restarts = 0;
        size_t heap = 0;
        size_t rss = 0;
        size_t registry = 0;        // request_callbacks.size()
        size_t leaked = 0;          // callback requests with a live client and no answer
        size_t leakedWithheld = 0;  // ... of which the HAL withheld the answer
        size_t defaultBinders = 0;
        uint64_t calls = 0;
    };

    // With every caller parked and the binder world drained.
    Snapshot snapshot() {
        Snapshot s;
        s.restarts = hal_.starts() - 1;
        for (CallerState& c : callers_) {
            prune(c);
            s.calls += c.calls.load();
            for (const Pending& p : c.pending) {
                const int answers = p.owner->answers.load();
                const long users = p.owner.use_count();
                if (answers == 0 && users == 2) {
                    ++s.leaked;
                    if (p.handle != -1) {
                        // The HAL answers before it replies: a caller that got a handle got
                        // the answer, unless the HAL withheld it.
                        if (!p.answerWithheld) {
                            fail("request " + std::to_string(p.handle) + " never got its answer");
                        }
                        ++s.leakedWithheld;
                    }
                } else {
                    fail("callback request in an unexpected state: answers " +
                         std::to_string(answers) + ", holders " + std::to_string(users - 1));
                }
            }
        }
        {
            std::lock_guard<std::mutex> lock(request_callback_mutex);
            s.registry = request_callbacks.size();
        }
        s.defaultBinders = binder_host::liveBinderCount(binder_host::kDefaultProcess);
        s.heap = heapBytes();
        s.rss = rssBytes();
        return s;
    }

    // Binder objects still alive in HAL processes that died: a reference the library failed to
    // drop (an interface kept after a death) keeps the dead HAL's object alive.
    size_t deadHalBinders() {
        size_t n = 0;
        const std::vector<binder_host::ProcessId> pids = hal_.pids();
        for (size_t i = 0; i + 1 < pids.size(); ++i) n += binder_host::liveBinderCount(pids[i]);
        return n;
    }

    void watchdog(std::atomic<bool>& finished, int stallSeconds) {
        uint64_t seen = progress_.load();
        auto lastChange = Clock::now();
        while (!finished.load()) {
            std::this_thread::sleep_for(milliseconds(200));
            const uint64_t now = progress_.load();
            if (now != seen) {
                seen = now;
                lastChange = Clock::now();
                continue;
            }
            if (Clock::now() - lastChange < std::chrono::seconds(stallSeconds)) continue;
            std::fprintf(stderr,
                         "\nstress watchdog: no call returned for %d s; the run is stuck.\n"
                         "  driver: %s; HAL restarts so far: %d, HAL process %d %s\n",
                         stallSeconds, driverStep_.load(), hal_.starts() - 1, hal_.pid(),
                         binder_host::isAlive(hal_.pid()) ? "alive" : "dead");
            for (size_t i = 0; i < kCallers; ++i) {
                std::fprintf(stderr, "  caller %zu: %s for %lld ms (%llu calls)\n", i,
                             callers_[i].op.load(),
                             static_cast<long long>(nowMs() - callers_[i].opSince.load()),
                             static_cast<unsigned long long>(callers_[i].calls.load()));
            }
            std::fflush(stderr);
            std::abort();
        }
    }
};

// Parks the driver while callers run; the watchdog covers it too.
void sleepMs(int ms) {
    std::this_thread::sleep_for(milliseconds(ms));
}

TEST(Stress, ThreeFrontEndsSurviveRepeatedHalDeaths) {
    const RunSize size = runSize();
    binder_host::reset();
    __android_log_set_logger(countingLogger);

    StressHal hal(/*binderThreads=*/4);
    hal.start();
    StressRun run(hal);

    std::atomic<bool> finished{false};
    std::thread watchdog([&] { run.watchdog(finished, size.stallSeconds); });

    size_t registryBase;
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        registryBase = request_callbacks.size();
    }
    const size_t binderBase = binder_host::liveBinderCount(binder_host::kDefaultProcess);

    // ---- calibration, before the callers start ----
    // What one callback request that never gets its answer costs (its client, the client's
    // binder memory, the caller's callback and this test's record of it), with the storm's mix
    // of request kinds. These clients stay in request_callbacks like the storm's.
    const double perLeak = run.calibrateLeakCost(256);
    // What one restart leaves behind when only a few calls are made: the emulated process that
    // died (the host runtime keeps its record and its parked binder threads) and the death
    // recipients each front end makes per connection. A per-call leak hardly shows here.
    const double perRestart = run.calibrateRestartCost(4);
    const int quietRestarts = hal.starts() - 1;

    std::vector<std::thread> callers;
    for (size_t i = 0; i < kCallers; ++i) callers.emplace_back([&run, i] { run.caller(i); });

    std::mt19937 rng(42);
    std::vector<StressRun::Snapshot> points;
    const int measureAt[] = {size.warmupRestarts, size.warmupRestarts + size.phaseRestarts,
                             size.warmupRestarts + 2 * size.phaseRestarts};
    const int total = measureAt[2];
    for (int restart = 1; restart <= total; ++restart) {
        run.driverStep_ = "HAL up";
        sleepMs(size.upMinMs + static_cast<int>(rng() % (size.upMaxMs - size.upMinMs + 1)));
        run.driverStep_ = "killing the HAL";
        hal.kill();
        run.driverStep_ = "HAL down";
        sleepMs(static_cast<int>(rng() % (size.downMaxMs + 1)));
        run.driverStep_ = "starting the HAL";
        hal.start();
        run.progress_++;
        if (std::find(std::begin(measureAt), std::end(measureAt), restart) != std::end(measureAt)) {
            run.driverStep_ = "pausing the callers";
            run.pauseCallers();
            run.driverStep_ = "draining";
            EXPECT_TRUE(binder_host::drain(10000)) << "binder work still pending";
            run.driverStep_ = "measuring";
            points.push_back(run.snapshot());
            EXPECT_EQ(run.deadHalBinders(), 0u)
                    << "objects of dead HAL processes are still referenced";
            run.progress_++;
            run.driverStep_ = "resuming";
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
    {
        Resources res{{0x010108A0, "1"}};
        EXPECT_TRUE(run.validHandle(torqHalclient::torqResCtlRequest(100, res, 0)))
                << "torqHalclient's first call after the last restart";
        EXPECT_TRUE(run.validHandle(ZelEventAcquire(0, "com.stress", "stress", 100, {})))
                << "the flat API's first call after the last restart";
        EXPECT_TRUE(run.validHandle(ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "s", "i", 1)))
                << "the wrappers' first call after the last restart";
        int32_t h = torqHalclient::torqResListeningRegister(res, 0, run.idListener_);
        EXPECT_TRUE(run.validHandle(h)) << "listening after the last restart";
        EXPECT_EQ(torqHalclient::torqResListeningUnRegister(h), 0);
    }
    ASSERT_TRUE(binder_host::drain(10000));
    run.driverStep_ = "final accounting";
    const StressRun::Snapshot end = run.snapshot();
    finished = true;
    watchdog.join();
    const size_t deadBinders = run.deadHalBinders();
    // Let the last death notices run before the test ends: at exit the library's globals go away
    // while binder threads may still be delivering them.
    hal.kill();
    binder_host::drain(10000);
    __android_log_set_logger(__android_log_stderr_logger);

    // ---- report ----
    uint64_t calls = 0, failures = 0, callbackRequests = 0;
    for (const CallerState& c : run.callers_) {
        calls += c.calls.load();
        failures += c.failures.load();
        callbackRequests += c.callbackRequests;
    }
    calls += 6;
    const HalCounters& hc = hal.counters();
    std::printf(
            "stress: %d HAL restarts survived under load (and %d quiet ones), %llu library "
            "calls (%llu gave the failure value), %llu HAL calls, %llu log lines\n",
            hal.starts() - 1 - quietRestarts, quietRestarts, static_cast<unsigned long long>(calls),
            static_cast<unsigned long long>(failures),
            static_cast<unsigned long long>(hc.calls.load()),
            static_cast<unsigned long long>(g_logLines.load()));
    std::printf(
            "stress: %llu callback requests, %llu reached the HAL, %llu answered, %llu "
            "withheld; %zu left unanswered in request_callbacks (%zu with a handle)\n",
            static_cast<unsigned long long>(callbackRequests),
            static_cast<unsigned long long>(hc.callbackRequests.load()),
            static_cast<unsigned long long>(hc.answersSent.load()),
            static_cast<unsigned long long>(hc.answersWithheld.load()), end.leaked,
            end.leakedWithheld);
    std::printf(
            "stress: calibration: %.0f B per unanswered callback request, %.0f B per quiet "
            "restart\n",
            perLeak, perRestart);
    std::printf(
            "stress: death notices logged: torqHalclient %llu, flat API %llu\n",
            static_cast<unsigned long long>(
                    errorCount("TORQFramework-lib-vendor", "Torq HAL Service died")),
            static_cast<unsigned long long>(errorCount("[ZEL_CLIENT]", "Torq HAL Service died")));
    for (const StressRun::Snapshot& p : points) {
        std::printf(
                "stress: after %3d restarts: heap %zu B, RSS %zu kB, request_callbacks %zu, "
                "leaked clients %zu, binders in this process %zu, calls %llu\n",
                p.restarts, p.heap, p.rss / 1024, p.registry, p.leaked, p.defaultBinders,
                static_cast<unsigned long long>(p.calls));
    }
    {
        std::lock_guard<std::mutex> lock(g_logMutex);
        for (const auto& [text, n] : g_errorLines) {
            std::printf("stress: error line x%llu: %s\n", static_cast<unsigned long long>(n),
                        text.c_str());
        }
    }

    // ---- checks ----
    {
        std::lock_guard<std::mutex> lock(g_failMutex);
        EXPECT_EQ(g_failureCount.load(), 0u) << "invalid results, first ones:";
        for (const std::string& f : g_failures) ADD_FAILURE() << f;
    }
    EXPECT_GE(hal.starts() - 1 - quietRestarts, 50) << "restarts under load";
    EXPECT_EQ(hc.malformed.load(), 0u) << "the HAL received requests no front end builds";
    EXPECT_EQ(errorCount("Same callback interface registered already"), 0u)
            << "a listening group outlived its unregistration";
    EXPECT_EQ(errorCount("callback not found in request_callbacks"), 0u);

    // request_callbacks holds exactly the unanswered clients, at every measurement. Those
    // clients are plain objects by then (the HAL dropped its reference when it died or never got
    // one), so no binder object of this process outlives the calls.
    for (const StressRun::Snapshot& p : points) {
        EXPECT_EQ(p.registry - registryBase, p.leaked) << "after " << p.restarts << " restarts";
        EXPECT_EQ(p.defaultBinders, binderBase)
                << "binder objects of this process after " << p.restarts << " restarts";
    }
    EXPECT_EQ(end.registry - registryBase, end.leaked);
    EXPECT_EQ(end.defaultBinders, binderBase);

    // Heap: between two measurements it may grow by the unanswered clients (calibrated cost
    // each) and by what each restart leaves behind. A quiet restart's residue is calibrated; a
    // busy one leaves more in the dead emulated process (its proxy table and work queue grew
    // with the HAL's load and never shrink), and the number of binder threads the HAL started
    // and of death recipients the flat API made (its connect does not test the cache again, so
    // racing callers each make one) vary. Twice the quiet residue plus 2 kB per restart covers
    // that in every build (the busiest residue seen is about 1.5 times the quiet one, with libc++),
    // while a leak of a single byte per call, multiplied by the thousands of calls each restart
    // sees, would exceed it; the fixed part covers the registry vector's capacity doubling and
    // the first appearance of each log text in this test's counter.
    for (size_t i = 1; i < points.size(); ++i) {
        const StressRun::Snapshot& a = points[i - 1];
        const StressRun::Snapshot& b = points[i];
        const int restarts = b.restarts - a.restarts;
        const double leakBytes = static_cast<double>(b.leaked - a.leaked) * perLeak;
        const double residual =
                static_cast<double>(b.heap) - static_cast<double>(a.heap) - leakBytes;
        const double budget = restarts * (2 * perRestart + kRestartMargin) + kFixedMargin +
                              static_cast<double>(b.registry) * sizeof(void*) * 2;
        const double callsPerRestart = static_cast<double>(b.calls - a.calls) / restarts;
        std::printf(
                "stress: restarts %d..%d: heap %+lld B, of which %.0f B for %zu unanswered "
                "clients; the rest %.0f B/restart (budget %.0f; a leak of 1 byte per call "
                "would add %.0f)\n",
                a.restarts, b.restarts,
                static_cast<long long>(b.heap) - static_cast<long long>(a.heap), leakBytes,
                b.leaked - a.leaked, residual / restarts, budget / restarts, callsPerRestart);
        EXPECT_LE(residual, budget)
                << "heap grew with the restarts " << a.restarts << ".." << b.restarts;
    }
    EXPECT_GE(end.leaked, end.leakedWithheld);
    EXPECT_GT(hc.answersWithheld.load(), 0u);
    EXPECT_EQ(deadBinders, 0u);
    EXPECT_EQ(run.idListener_.use_count(), 1) << "a listening client outlived its group";
    EXPECT_EQ(run.pathListener_.use_count(), 1) << "a listening client outlived its group";
    EXPECT_GT(run.idListener_->notices.load(), 0u);
    EXPECT_GT(run.pathListener_->notices.load(), 0u);
}

}  // namespace
}  // namespace stress

// The heap figures count bytes in use. glibc's per-thread caches keep freed blocks that count as
// in use, and the binder threads of a killed emulated process never exit, so those caches would
// grow with every restart and hide what the library does. The test runs without them: the
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
