#pragma once

// Everything torqctl prints goes through here, from the main thread and from binder threads
// (callbacks, log lines), one whole line at a time. Text for people, or with --json one JSON
// object per line, written by jsoncpp. Errors go to standard error as one line (and with --json
// also to standard output as an object).

#include <json/value.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "torq_sim/Journal.h"

namespace torqctl {

/** A line the library wrote through liblog. */
struct LogLine {
    int priority = 0;  // ANDROID_LOG_*
    std::string tag;   // empty when written without a tag
    std::string message;
};

/** Routes every liblog line of this process to `sink`, not the default (stderr on a host). */
void installLogHook(std::function<void(const LogLine&)> sink);

/** One library call and what came of it. */
struct Report {
    std::string command;               // the torqctl command ("resctl")
    std::string call;                  // the library function ("torqHalclient::torqResCtlRequest")
    std::string args;                  // its arguments, readable
    std::optional<int64_t> result;     // absent for void functions
    bool ok = true;                    // the library reported success
    std::vector<std::string> details;  // further lines for people (values, dump output)
    Json::Value extra{Json::objectValue};  // the same for --json: members added to the object
    // What the HAL received during the call; absent when torqctl cannot see it (a declared HAL).
    std::optional<std::vector<torq_sim::JournalEntry>> hal;
};

/** Records a HAL callback carried to the caller's callback object. */
struct CallbackEvent {
    std::string to;  // "request", "listener", "thermal listener"
    int32_t handle = 0;
    bool byPath = false;
    std::vector<std::pair<std::string, std::string>> records;  // key (opcode or path), value
};

/** torqctl's output, text or JSON. Thread-safe; a failed write is remembered (writeFailed). */
class Output {
  public:
    explicit Output(bool json) : json_(json) {}

    /** A library call: a head line, details and what the HAL received; or one object. */
    void report(const Report& report);
    void callback(const CallbackEvent& event);
    void log(const LogLine& line);
    /** A line of text for people; with --json the object instead (skipped when not an object). */
    void message(const std::string& text, const Json::Value& json = Json::Value());
    /** Text printed as it stands in both modes (help). */
    void raw(const std::string& text);
    /** "torqctl: TEXT" on stderr; with --json also {"error": TEXT, "exit": EXIT} on stdout. */
    void error(const std::string& text, int exit);
    bool writeFailed() const;

  private:
    void write(const std::string& text);

    const bool json_;
    mutable std::mutex mutex_;
    bool writeFailed_ = false;
};

using JsonMembers = std::initializer_list<std::pair<const char*, Json::Value>>;

/** An object of the members given (JSON writes them by name, whatever their order here). */
Json::Value jsonObject(JsonMembers members);

/** Records (opcode or path, value) as [{KEY: ..., "value": ...}], KEY "id" or "path". */
Json::Value recordsJson(const std::vector<std::pair<std::string, std::string>>& records,
                        const char* key);

/** The text line of a callback event ("callback to listener #2: 0x... = ..."). */
std::string describeCallback(const CallbackEvent& event);

/** `text` as valid UTF-8: every byte outside a well-formed sequence becomes \xNN (lower hex). */
std::string validUtf8(const std::string& text);

/** `value` as one line of JSON, every string passed through validUtf8 first. */
std::string toJsonLine(const Json::Value& value);

/** What the HAL received and sent, as JSON: one object per journal entry. */
Json::Value halJson(const std::vector<torq_sim::JournalEntry>& entries);

}  // namespace torqctl
