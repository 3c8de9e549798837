#pragma once

// Everything torqctl prints goes through here, from the main thread and from binder threads
// (callbacks, log lines), one whole line at a time. Text for people, or with --json one JSON
// object per line. Errors go to standard error as one line.

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Json.h"
#include "LogHook.h"
#include "torq_sim/Journal.h"

namespace torqctl {

// One library call and what came of it.
struct Report {
    std::string command;               // the torqctl command ("resctl")
    std::string call;                  // the library function ("torqHalclient::torqResCtlRequest")
    std::string args;                  // its arguments, readable
    std::optional<int64_t> result;     // absent for void functions
    bool ok = true;                    // the library reported success
    std::vector<std::string> details;  // further lines for people (values, dump output)
    Json extra = Json::object();       // the same for --json
    bool halVisible = false;           // whether `hal` says what the HAL received
    std::vector<torq_sim::JournalEntry> hal;
};

// Records a HAL callback carried to the caller's callback object.
struct CallbackEvent {
    std::string to;  // "request", "listener", "thermal listener"
    int32_t handle = 0;
    bool byPath = false;
    std::vector<std::pair<std::string, std::string>> records;  // key (opcode or path), value
};

class Output {
  public:
    Output(bool json, FILE* out = stdout, FILE* err = stderr);

    bool json() const { return json_; }
    void report(const Report& report);
    void callback(const CallbackEvent& event);
    void log(const LogLine& line);
    // A line of text for people; with --json the object instead (skipped when null).
    void message(const std::string& text, const Json& json = Json());
    // Text printed as it stands in both modes (help).
    void raw(const std::string& text);
    void error(const std::string& text);

  private:
    void emit(const std::string& line);

    const bool json_;
    FILE* out_;
    FILE* err_;
    std::mutex mutex_;
};

std::string describeCallback(const CallbackEvent& event);

}  // namespace torqctl
