#pragma once

// Runs torqctl commands against the library's three front ends and reports each call. A console
// lives for one torqctl run: in a shell it remembers the handles it obtained, so releases go to
// the front end that made them, unknown handles are refused and listeners stay until unlisten.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Backend.h"
#include "CommandParser.h"
#include "Output.h"

namespace torqctl {

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // the library reported a failure
constexpr int kExitUsage = 2;   // bad input
constexpr int kExitNoHal = 3;   // no usable HAL for this command

class CallbackSink;
struct Call;

class Console {
  public:
    Console(Output& out, Backend& backend, bool shellMode)
        : out_(out), backend_(backend), shellMode_(shellMode) {}
    ~Console() { finish(); }

    // Runs one parsed command; returns its exit status.
    int execute(const Command& command);
    // Runs the lines of `in`; the status of the last failing line, or 0 when all worked.
    int runShell(std::istream& in, bool interactive);

    const std::vector<Report>& reports() const { return reports_; }  // of the last execute()
    Output& output() { return out_; }
    Backend& backend() { return backend_; }

    // Waits at most `timeoutMs` until `done` holds of the callback events (in arrival order) and
    // the library's log lines received so far; whether it did. `done` runs under a lock.
    using Done = std::function<bool(const std::vector<CallbackEvent>&, const std::vector<LogLine>&)>;
    bool waitUntil(int64_t timeoutMs, const Done& done) const;
    // Kept for waitUntil whether or not it is shown.
    void onLog(const LogLine& line, bool show);

    // Unregisters what is still registered and waits for a pending restart.
    void finish();

    // From callback objects (binder threads).
    void deliver(CallbackSink* from, CallbackEvent event);

  private:
    friend struct Call;

    // Makes a command's calls (`fill`) and reports them; a handle obtained is kept as `origin`'s.
    int call(const Command& c, const char* origin, const std::function<void(Call&)>& fill);
    int fail(int exit, const std::string& message);
    // A command without a library call worked: `text`, or `json` with "command" and "ok" added.
    int done(const Command& c, const std::string& text,
             Json::Value json = Json::Value(Json::objectValue));
    void show(const CallbackEvent& event);
    // Ends a call: shows the callbacks held during it, those to `sink` with the `handle` it got.
    void releaseHeld(CallbackSink* sink = nullptr, int32_t handle = 0);

    int actions(const Command& c);
    int release(const Command& c);
    int listen(const Command& c);
    int journal(const Command& c);
    int killHal(const Command& c);
    int restartHal(const Command& c);

    Output& out_;
    Backend& backend_;
    const bool shellMode_;
    std::vector<Report> reports_;

    // What made each handle this shell holds, so that it is released the same way: "wrapper",
    // "zel", "halclient", "sa" (the --via names), "listener" or "thermal listener".
    std::map<int32_t, std::string> handles_;

    mutable std::mutex eventsMutex_;
    mutable std::condition_variable eventsCv_;
    std::vector<CallbackEvent> events_;
    bool callInProgress_ = false;
    std::vector<std::pair<const CallbackSink*, CallbackEvent>> held_;
    std::vector<LogLine> logLines_;

    // restart-hal --after; only the thread running commands touches the thread.
    std::thread restartThread_;
    std::atomic<bool> restartPending_{false};
};

// A guided walk through every front end against the simulator, ending with a HAL death and the
// reconnection; each step checks what the library returned and what the HAL received. Returns
// kExitOk only if every step passed.
int runTour(Console& console);

}  // namespace torqctl
