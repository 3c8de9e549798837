#include "CommandParser.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace torqctl {

namespace {

struct VerbInfo {
    Verb verb;
    const char* word;
    const char* synopsis;
    const char* summary;
    std::vector<std::string> valueOptions;  // --name VALUE or --name=VALUE
    std::vector<std::string> flagOptions;
    size_t minArgs;
    size_t maxArgs;
};

constexpr size_t kMany = std::numeric_limits<size_t>::max();

const std::vector<VerbInfo>& verbs() {
    static const std::vector<VerbInfo> kVerbs = {
            {Verb::kHelp,
             "help",
             "help [COMMAND]",
             "show this text, or one command's usage",
             {},
             {},
             0,
             1},
            {Verb::kActions,
             "actions",
             "actions [PATTERN]",
             "list the action table (event id and name), optionally only names containing "
             "PATTERN",
             {},
             {},
             0,
             1},
            {Verb::kAcquire,
             "acquire",
             "acquire ACTION [--scene TEXT] [--identity TEXT] [--timeout MS]",
             "acquire an action by name through ZelEventAcquireWrapper (\"VARDEX_\" is added "
             "when missing)",
             {"--scene", "--identity", "--timeout"},
             {},
             1,
             1},
            {Verb::kAcquireId,
             "acquire-id",
             "acquire-id EVENT_ID [--pkg TEXT] [--identity TEXT] [--duration MS] "
             "[OPCODE=VALUE...]",
             "acquire an event by id through ZelEventAcquire, with optional resources",
             {"--pkg", "--identity", "--duration"},
             {},
             1,
             kMany},
            {Verb::kResAcquire,
             "res-acquire",
             "res-acquire [--platform [--pkg TEXT]] [--identity TEXT] [--duration MS] "
             "OPCODE=VALUE...",
             "acquire resources through ZelResAcquire; with --platform through "
             "ZelPlatformResAcquire, which also takes a package",
             {"--pkg", "--identity", "--duration"},
             {"--platform"},
             1,
             kMany},
            {Verb::kRelease,
             "release",
             "release HANDLE [--via wrapper|zel|halclient|sa]",
             "release a handle (default: the front end that made it in a shell, else zel)",
             {"--via"},
             {},
             1,
             1},
            {Verb::kResCtl,
             "resctl",
             "resctl [--duration MS] [--param N] [--option N] [--level N] [--tag N] "
             "[--callback] OPCODE=VALUE...",
             "resource control by opcode through torqHalclient::torqResCtlRequest",
             {"--duration", "--param", "--option", "--level", "--tag"},
             {"--callback"},
             1,
             kMany},
            {Verb::kResCtlPath,
             "resctl-path",
             "resctl-path [--duration MS] [--param N] [--option N] [--level N] [--tag N] "
             "[--callback] PATH=VALUE...",
             "resource control by path through torq_resctl_request_by_path (or "
             "..._with_callback_by_path)",
             {"--duration", "--param", "--option", "--level", "--tag"},
             {"--callback"},
             1,
             kMany},
            {Verb::kSaCtl,
             "sactl",
             "sactl ID [--duration MS] [--param N] [--option N] [--level N] [--tag N] "
             "[--callback]",
             "SA control through torqHalclient::torqSACtlRequest",
             {"--duration", "--param", "--option", "--level", "--tag"},
             {"--callback"},
             1,
             1},
            {Verb::kState,
             "state",
             "state [--via halclient|zel|zel-one] [--tag N] OPCODE...",
             "current values through torqResStateRequest (halclient), ZelMutiResStateRequest "
             "(zel) or ZelResStateRequest (zel-one)",
             {"--via", "--tag"},
             {},
             1,
             kMany},
            {Verb::kStatePath,
             "state-path",
             "state-path [--map] [--tag N] PATH[=VALUE]...",
             "current values by path through torq_res_state_request_by_path (or ..._map_...)",
             {"--tag"},
             {"--map"},
             1,
             kMany},
            {Verb::kListen,
             "listen",
             "listen [--for MS] [--tag N] OPCODE...|PATH...",
             "listen for changes (torqResListeningRegister, or the by-path form for paths) and "
             "print callbacks as they arrive; outside a shell for --for MS (default 5000)",
             {"--for", "--tag"},
             {},
             1,
             kMany},
            {Verb::kUnlisten,
             "unlisten",
             "unlisten HANDLE",
             "stop listening through torqResListeningUnRegister",
             {},
             {},
             1,
             1},
            {Verb::kThermal,
             "thermal",
             "thermal [--tag N] ID=LEVEL...",
             "pass thermal levels through torqThermalNotify",
             {"--tag"},
             {},
             1,
             kMany},
            {Verb::kThermalListen,
             "thermal-listen",
             "thermal-listen [--for MS] [ID...]",
             "listen for thermal levels through torqThermalListeningRegister (no ID: all)",
             {"--for"},
             {},
             0,
             kMany},
            {Verb::kThermalUnlisten,
             "thermal-unlisten",
             "thermal-unlisten HANDLE",
             "stop thermal listening through torqThermalListeningUnregister",
             {},
             {},
             1,
             1},
            {Verb::kNotify,
             "notify",
             "notify SRC TYPE [PARAM [DATA]] [--name TEXT]",
             "a numbered notification through ZelNotifyWapper",
             {"--name"},
             {},
             2,
             4},
            {Verb::kZelNotify,
             "zel-notify",
             "zel-notify FIRST SECOND [VALUE...]",
             "a notification through ZelNotify",
             {},
             {},
             2,
             kMany},
            {Verb::kRule,
             "rule",
             "rule RULE_ID STATUS [OPCODE=VALUE...]",
             "switch a rule through zelRuleCtl",
             {},
             {},
             2,
             kMany},
            {Verb::kSysInfo,
             "sysinfo",
             "sysinfo TYPE VALUE",
             "pass system information through setRelatedSysInfo",
             {},
             {},
             2,
             2},
            {Verb::kHistory,
             "history",
             "history on|off|show",
             "switch history recording (torqHistoryRequestRecordOn/Off) or read it "
             "(ZelGetHistory)",
             {},
             {},
             1,
             1},
            {Verb::kPm, "pm", "pm MODE", "power-mode status through ZelGetPMStatus", {}, {}, 1, 1},
            {Verb::kDump,
             "dump",
             "dump CODE|NAME|all",
             "ask the HAL to dump a table (codes 0-8: ToDoQueue RunMap ActiveResMap ResRequest "
             "ResInfo SAInfo PidFdList PidfdMonitorMap ResRecordList) through torqDump*",
             {},
             {},
             1,
             1},
            {Verb::kProp,
             "prop",
             "prop get NAME | prop set NAME VALUE",
             "read or write a HAL property through torqPropertyGet/torqPropertySet",
             {},
             {},
             2,
             3},
            {Verb::kInit,
             "init",
             "init",
             "connect both front ends: torq_init and zelInit",
             {},
             {},
             0,
             0},
            {Verb::kJournal,
             "journal",
             "journal",
             "everything the simulated HAL received and sent so far",
             {},
             {},
             0,
             0},
            {Verb::kWait, "wait", "wait MS", "pause, letting callbacks arrive", {}, {}, 1, 1},
            {Verb::kKillHal,
             "kill-hal",
             "kill-hal",
             "kill the simulated HAL's process (as if it crashed)",
             {},
             {},
             0,
             0},
            {Verb::kRestartHal,
             "restart-hal",
             "restart-hal [--after MS]",
             "start the simulated HAL again (a fresh one), now or after MS in the background",
             {"--after"},
             {},
             0,
             0},
            {Verb::kShell,
             "shell",
             "shell [FILE]",
             "run commands line by line from FILE or standard input; handles and listeners "
             "persist",
             {},
             {},
             0,
             1},
            {Verb::kTour,
             "tour",
             "tour",
             "walk through every front end, a callback, a HAL death and the reconnection; exit "
             "code 0 only if every step worked",
             {},
             {},
             0,
             0},
    };
    return kVerbs;
}

const VerbInfo* findVerb(const std::string& word) {
    for (const VerbInfo& entry : verbs()) {
        if (word == entry.word) return &entry;
    }
    return nullptr;
}

const VerbInfo* findVerb(Verb verb) {
    for (const VerbInfo& entry : verbs()) {
        if (verb == entry.verb) return &entry;
    }
    return nullptr;
}

bool isGlobalOption(const std::string& word) {
    return word == "--json" || word == "--log" || word == "--no-sim" || word == "--version";
}

// What a word shows in an error message: cut and made printable, so any input stays one line.
std::string shown(const std::string& word) {
    constexpr size_t kMax = 40;
    std::string out;
    for (unsigned char c : word.substr(0, kMax))
        out += std::isprint(c) ? static_cast<char>(c) : '?';
    if (word.size() > kMax) out += "...";
    return "'" + out + "'";
}

bool parseSigned(const std::string& text, int64_t min, int64_t max, int64_t* out) {
    const char* p = text.data();
    const char* const end = p + text.size();
    bool negative = false;
    if (p != end && (*p == '+' || *p == '-')) {
        negative = *p == '-';
        ++p;
    }
    int base = 10;
    if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        base = 16;
        p += 2;
    }
    // from_chars takes no sign of its own for an unsigned value, and no prefix: "--5", "0x-5"
    // and "-+5" are refused here.
    uint64_t magnitude = 0;
    const std::from_chars_result parsed = std::from_chars(p, end, magnitude, base);
    if (p == end || parsed.ec != std::errc() || parsed.ptr != end) return false;
    // Every accepted range lies within int64, so a magnitude beyond 2^63 is out of range.
    constexpr uint64_t kLimit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + 1;
    if (magnitude > kLimit || (!negative && magnitude == kLimit)) return false;
    const int64_t value =
            negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    if (value < min || value > max) return false;
    *out = value;
    return true;
}

class Parser {
  public:
    Parser(const VerbInfo& entry, std::vector<std::string> words)
        : info_(entry), words_(std::move(words)) {}

    ParseResult run() {
        result_.command.verb = info_.verb;
        result_.command.word = info_.word;
        if (!splitOptions()) return result_;
        if (result_.command.help) {
            result_.ok = true;
            return result_;
        }
        if (args_.size() < info_.minArgs) {
            return fail("missing argument for '" + std::string(info_.word) +
                        "' (usage: " + info_.synopsis + ")");
        }
        if (args_.size() > info_.maxArgs) {
            return fail("too many arguments for '" + std::string(info_.word) +
                        "': " + shown(args_[info_.maxArgs]));
        }
        if (!interpret()) return result_;
        result_.ok = true;
        return result_;
    }

    bool hasOption(const std::string& name) const {
        return std::any_of(options_.begin(), options_.end(),
                           [&](const auto& option) { return option.first == name; });
    }

  private:
    ParseResult& fail(const std::string& message) {
        result_.ok = false;
        if (result_.error.empty()) result_.error = message;
        return result_;
    }

    bool has(const std::vector<std::string>& list, const std::string& name) const {
        return std::find(list.begin(), list.end(), name) != list.end();
    }

    bool splitOptions() {
        bool optionsEnded = false;
        for (size_t i = 0; i < words_.size(); ++i) {
            const std::string& w = words_[i];
            if (optionsEnded || w.size() < 2 || w[0] != '-' || (w[1] != '-' && w != "-h")) {
                args_.push_back(w);
                continue;
            }
            if (w == "--") {
                optionsEnded = true;
                continue;
            }
            if (w == "--help" || w == "-h") {
                result_.command.help = true;
                continue;
            }
            const size_t eq = w.find('=');
            const std::string name = w.substr(0, eq);
            if (has(info_.flagOptions, name)) {
                if (eq != std::string::npos) {
                    fail("option " + name + " takes no value");
                    return false;
                }
                options_.emplace_back(name, "");
            } else if (has(info_.valueOptions, name)) {
                if (eq != std::string::npos) {
                    options_.emplace_back(name, w.substr(eq + 1));
                } else if (i + 1 < words_.size()) {
                    options_.emplace_back(name, words_[++i]);
                } else {
                    fail("option " + name + " needs a value");
                    return false;
                }
            } else {
                fail("unknown option " + shown(name) + " for '" + std::string(info_.word) + "'");
                return false;
            }
        }
        return true;
    }

    bool int32Option(const std::string& name, const std::string& value, int32_t* out) {
        if (parseInt32(value, out)) return true;
        fail("malformed number for " + name + ": " + shown(value));
        return false;
    }

    bool durationOption(const std::string& name, const std::string& value, int64_t* out,
                        bool int32Only) {
        int64_t v = 0;
        const int64_t lo = int32Only ? std::numeric_limits<int32_t>::min()
                                     : std::numeric_limits<int64_t>::min();
        const int64_t hi = int32Only ? std::numeric_limits<int32_t>::max()
                                     : std::numeric_limits<int64_t>::max();
        if (!parseSigned(value, lo, hi, &v)) {
            fail("malformed milliseconds for " + name + ": " + shown(value));
            return false;
        }
        *out = v;
        return true;
    }

    bool applyOptions() {
        Command& c = result_.command;
        // resctl-path carries a 64-bit duration; every other command an int32 one.
        const bool wideDuration = info_.verb == Verb::kResCtlPath;
        for (const auto& [name, value] : options_) {
            bool ok = true;
            if (name == "--scene" || name == "--pkg") {
                c.text = value;
            } else if (name == "--identity") {
                c.identity = value;
            } else if (name == "--name") {
                c.notifyName = value;
            } else if (name == "--via") {
                c.via = value;
            } else if (name == "--timeout" || name == "--duration") {
                ok = durationOption(name, value, &c.duration, !wideDuration);
            } else if (name == "--for" || name == "--after") {
                int64_t ms = 0;
                ok = durationOption(name, value, &ms, true);
                if (ok && ms < 0) {
                    fail(name + " cannot be negative");
                    return false;
                }
                c.forMs = ms;
            } else if (name == "--param") {
                ok = int32Option(name, value, &c.param);
            } else if (name == "--option") {
                ok = int32Option(name, value, &c.option);
            } else if (name == "--level") {
                ok = int32Option(name, value, &c.level);
            } else if (name == "--tag") {
                ok = int32Option(name, value, &c.tag);
            } else if (name == "--callback") {
                c.callback = true;
            } else if (name == "--map") {
                c.map = true;
            } else if (name == "--platform") {
                c.platform = true;
            }
            if (!ok) return false;
        }
        // ZelResAcquire takes no package: rather than quietly calling another function, a
        // package asks for the platform acquisition to be named.
        if (info_.verb == Verb::kResAcquire && hasOption("--pkg") && !c.platform) {
            fail("--pkg needs --platform (only ZelPlatformResAcquire takes a package)");
            return false;
        }
        return true;
    }

    bool number(const std::string& word, const char* what, int32_t* out) {
        if (parseInt32(word, out)) return true;
        fail("malformed " + std::string(what) + " " + shown(word));
        return false;
    }

    bool opcode(const std::string& word, int32_t* out) {
        if (parseOpcode(word, out)) return true;
        fail("malformed opcode " + shown(word) + " (expected a number such as 0x010108a0)");
        return false;
    }

    bool idValue(const std::string& word, const char* idWhat, bool asOpcode) {
        const size_t eq = word.find('=');
        if (eq == std::string::npos) {
            fail("expected " + std::string(idWhat) + "=VALUE, got " + shown(word));
            return false;
        }
        IdValue iv;
        const std::string id = word.substr(0, eq);
        if (asOpcode ? !opcode(id, &iv.id) : !number(id, idWhat, &iv.id)) return false;
        iv.value = word.substr(eq + 1);
        if (iv.value.empty()) {
            fail("missing value in " + shown(word));
            return false;
        }
        result_.command.resources.push_back(std::move(iv));
        return true;
    }

    bool idValues(size_t from, const char* idWhat = "OPCODE", bool asOpcode = true) {
        for (size_t i = from; i < args_.size(); ++i) {
            if (!idValue(args_[i], idWhat, asOpcode)) return false;
        }
        return true;
    }

    bool pathWord(const std::string& word, bool needValue) {
        PathValue pv;
        const size_t eq = word.find('=');
        pv.path = word.substr(0, eq);
        if (pv.path.empty()) {
            fail("missing path in " + shown(word));
            return false;
        }
        if (eq != std::string::npos) {
            pv.value = word.substr(eq + 1);
            if (pv.value->empty()) {
                fail("missing value in " + shown(word));
                return false;
            }
        } else if (needValue) {
            fail("expected PATH=VALUE, got " + shown(word));
            return false;
        }
        result_.command.paths.push_back(std::move(pv));
        return true;
    }

    bool viaIsOneOf(std::initializer_list<const char*> choices) {
        const std::string& via = result_.command.via;
        if (via.empty()) return true;
        for (const char* choice : choices) {
            if (via == choice) return true;
        }
        fail("unknown front end for --via: " + shown(via));
        return false;
    }

    bool interpret() {
        if (!applyOptions()) return false;
        Command& c = result_.command;
        switch (info_.verb) {
            case Verb::kHelp:
                if (!args_.empty()) {
                    c.topic = args_[0];
                    if (findVerb(c.topic) == nullptr) {
                        fail("unknown command " + shown(c.topic));
                        return false;
                    }
                }
                return true;
            case Verb::kActions:
            case Verb::kShell:
                if (!args_.empty()) c.name = args_[0];
                return true;
            case Verb::kAcquire:
                c.name = args_[0];
                if (c.name.empty()) {
                    fail("missing action name");
                    return false;
                }
                return true;
            case Verb::kAcquireId:
                return number(args_[0], "event id", &c.number) && idValues(1);
            case Verb::kResAcquire:
            case Verb::kResCtl:
                return idValues(0);
            case Verb::kRelease:
            case Verb::kUnlisten:
            case Verb::kThermalUnlisten:
                if (!number(args_[0], "handle", &c.number)) return false;
                return info_.verb != Verb::kRelease ||
                       viaIsOneOf({"wrapper", "zel", "halclient", "sa"});
            case Verb::kResCtlPath:
                for (const std::string& w : args_) {
                    if (!pathWord(w, true)) return false;
                }
                return true;
            case Verb::kSaCtl:
                return number(args_[0], "SA id", &c.number);
            case Verb::kState:
                if (!viaIsOneOf({"halclient", "zel", "zel-one"})) return false;
                if (c.via == "zel-one" && args_.size() != 1) {
                    fail("--via zel-one reads exactly one opcode");
                    return false;
                }
                for (const std::string& w : args_) {
                    int32_t id = 0;
                    if (!opcode(w, &id)) return false;
                    c.ids.push_back(id);
                }
                return true;
            case Verb::kStatePath: {
                for (const std::string& w : args_) {
                    if (!pathWord(w, false)) return false;
                }
                if (c.map) {
                    for (const PathValue& pv : c.paths) {
                        if (!pv.value) {
                            fail("--map needs PATH=VALUE for every path");
                            return false;
                        }
                    }
                }
                return true;
            }
            case Verb::kListen: {
                bool anyPath = false;
                bool anyId = false;
                for (const std::string& w : args_) {
                    if (!w.empty() && w[0] == '/') {
                        anyPath = true;
                        c.paths.push_back({w, std::nullopt});
                    } else {
                        anyId = true;
                        int32_t id = 0;
                        if (!opcode(w, &id)) return false;
                        c.ids.push_back(id);
                    }
                }
                if (anyPath && anyId) {
                    fail("listen takes opcodes or paths, not both");
                    return false;
                }
                return true;
            }
            case Verb::kThermal:
                return idValues(0, "ID", false);
            case Verb::kThermalListen:
                for (const std::string& w : args_) {
                    int32_t id = 0;
                    if (!number(w, "thermal id", &id)) return false;
                    c.ids.push_back(id);
                }
                return true;
            case Verb::kNotify:
                if (!number(args_[0], "SRC", &c.number) || !number(args_[1], "TYPE", &c.number2)) {
                    return false;
                }
                if (args_.size() > 2 && !number(args_[2], "PARAM", &c.number3)) return false;
                if (args_.size() > 3) c.text = args_[3];
                return true;
            case Verb::kZelNotify:
                if (!number(args_[0], "FIRST", &c.number) ||
                    !number(args_[1], "SECOND", &c.number2)) {
                    return false;
                }
                for (size_t i = 2; i < args_.size(); ++i) {
                    int32_t v = 0;
                    if (!number(args_[i], "VALUE", &v)) return false;
                    c.ids.push_back(v);
                }
                return true;
            case Verb::kRule:
                return number(args_[0], "RULE_ID", &c.number) &&
                       number(args_[1], "STATUS", &c.number2) && idValues(2);
            case Verb::kSysInfo:
                if (!number(args_[0], "TYPE", &c.number)) return false;
                if (!parseInt64(args_[1], &c.value64)) {
                    fail("malformed VALUE " + shown(args_[1]));
                    return false;
                }
                return true;
            case Verb::kHistory:
                c.name = args_[0];
                if (c.name != "on" && c.name != "off" && c.name != "show") {
                    fail("history takes on, off or show, not " + shown(c.name));
                    return false;
                }
                return true;
            case Verb::kPm:
                return number(args_[0], "MODE", &c.number);
            case Verb::kDump:
                if (args_[0] == "all") {
                    c.allDumps = true;
                    return true;
                }
                c.number = dumpCodeFor(args_[0]);
                if (c.number < 0) {
                    fail("unknown dump table " + shown(args_[0]) + " (0-8, a table name or all)");
                    return false;
                }
                return true;
            case Verb::kProp:
                c.name = args_[0];
                if (c.name == "get" && args_.size() == 2) {
                    c.text = args_[1];
                    return true;
                }
                if (c.name == "set" && args_.size() == 3) {
                    c.text = args_[1];
                    c.value = args_[2];
                    return true;
                }
                fail("usage: prop get NAME | prop set NAME VALUE");
                return false;
            case Verb::kWait: {
                int64_t ms = 0;
                if (!parseSigned(args_[0], 0, std::numeric_limits<int32_t>::max(), &ms)) {
                    fail("malformed milliseconds " + shown(args_[0]));
                    return false;
                }
                c.forMs = ms;
                return true;
            }
            case Verb::kNone:
            case Verb::kInit:
            case Verb::kJournal:
            case Verb::kKillHal:
            case Verb::kRestartHal:
            case Verb::kTour:
                return true;
        }
        return true;
    }

    const VerbInfo& info_;
    std::vector<std::string> words_;
    std::vector<std::string> args_;
    std::vector<std::pair<std::string, std::string>> options_;
    ParseResult result_;
};

ParseResult parseWords(std::vector<std::string> words, GlobalOptions global) {
    ParseResult result;
    result.global = global;
    if (words.empty()) {
        result.error = "missing command (try 'torqctl help')";
        return result;
    }
    const VerbInfo* entry = findVerb(words[0]);
    if (entry == nullptr) {
        result.error = "unknown command " + shown(words[0]) + " (try 'torqctl help')";
        return result;
    }
    words.erase(words.begin());
    result = Parser(*entry, std::move(words)).run();
    result.global = global;
    return result;
}

}  // namespace

bool parseInt32(const std::string& text, int32_t* out) {
    int64_t v = 0;
    if (!parseSigned(text, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(),
                     &v)) {
        return false;
    }
    *out = static_cast<int32_t>(v);
    return true;
}

bool parseInt64(const std::string& text, int64_t* out) {
    return parseSigned(text, std::numeric_limits<int64_t>::min(),
                       std::numeric_limits<int64_t>::max(), out);
}

bool parseOpcode(const std::string& text, int32_t* out) {
    int64_t v = 0;
    if (!parseSigned(text, std::numeric_limits<int32_t>::min(),
                     std::numeric_limits<uint32_t>::max(), &v)) {
        return false;
    }
    *out = static_cast<int32_t>(static_cast<uint32_t>(v));
    return true;
}

const char* dumpName(int32_t code) {
    static const char* const kNames[] = {"ToDoQueue",  "RunMap",          "ActiveResMap",
                                         "ResRequest", "ResInfo",         "SAInfo",
                                         "PidFdList",  "PidfdMonitorMap", "ResRecordList"};
    if (code < 0 || code > 8) return nullptr;
    return kNames[code];
}

int32_t dumpCodeFor(const std::string& text) {
    int32_t code = -1;
    if (parseInt32(text, &code)) return dumpName(code) != nullptr ? code : -1;
    auto lower = [](std::string s) {
        for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        return s;
    };
    for (int32_t i = 0; i <= 8; ++i) {
        if (lower(text) == lower(dumpName(i))) return i;
    }
    return -1;
}

bool tokenize(const std::string& line, std::vector<std::string>* words, std::string* error) {
    words->clear();
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (inWord) words->push_back(word);
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;
        } else if (c == '\'') {
            const size_t end = line.find('\'', i + 1);
            if (end == std::string::npos) {
                *error = "unterminated ' quote";
                return false;
            }
            word += line.substr(i + 1, end - i - 1);
            inWord = true;
            i = end;
        } else if (c == '"') {
            inWord = true;
            size_t j = i + 1;
            for (; j < line.size() && line[j] != '"'; ++j) {
                if (line[j] == '\\' && j + 1 < line.size() &&
                    (line[j + 1] == '"' || line[j + 1] == '\\')) {
                    ++j;
                }
                word += line[j];
            }
            if (j >= line.size()) {
                *error = "unterminated \" quote";
                return false;
            }
            i = j;
        } else if (c == '\\') {
            if (i + 1 < line.size()) word += line[++i];
            inWord = true;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words->push_back(word);
    return true;
}

ParseResult parseCommandLine(const std::vector<std::string>& args) {
    GlobalOptions global;
    std::vector<std::string> words;
    bool ended = false;
    for (const std::string& a : args) {
        if (!ended && a == "--") ended = true;
        if (!ended && isGlobalOption(a)) {
            if (a == "--json") global.json = true;
            if (a == "--log") global.log = true;
            if (a == "--no-sim") global.noSim = true;
            if (a == "--version") global.version = true;
            continue;
        }
        words.push_back(a);
    }
    if (global.version) {
        ParseResult r;
        r.global = global;
        r.ok = words.empty();
        if (!r.ok) r.error = "--version takes no command";
        return r;
    }
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) words[0] = "help";
    if (words.empty()) {
        ParseResult r;
        r.global = global;
        r.error = "missing command (try 'torqctl help')";
        return r;
    }
    return parseWords(std::move(words), global);
}

ParseResult parseShellLine(const std::string& line) {
    ParseResult result;
    std::vector<std::string> words;
    if (!tokenize(line, &words, &result.error)) return result;
    if (words.empty()) {
        result.ok = true;  // Verb::kNone
        return result;
    }
    for (const std::string& w : words) {
        if (w == "--") break;
        if (isGlobalOption(w)) {
            result.error = "global option " + w + " is only accepted on torqctl's command line";
            return result;
        }
    }
    result = parseWords(std::move(words), GlobalOptions{});
    if (result.ok && (result.command.verb == Verb::kShell || result.command.verb == Verb::kTour) &&
        !result.command.help) {
        result.ok = false;
        result.error = "'" + result.command.word + "' cannot run inside a shell";
    }
    return result;
}

std::string usage() {
    std::string out =
            "Usage: torqctl [--json] [--log] [--no-sim] COMMAND [ARGS...]\n"
            "       torqctl COMMAND --help\n"
            "       torqctl --version\n"
            "\n"
            "Drives the Torq HAL through libquarn-zel-client's three front ends (torqHalclient,\n"
            "the Zel* flat API and the action wrapper) and shows what each call returned and\n"
            "what the HAL received. On a host with no declared HAL, torqctl runs the reference\n"
            "simulator in an emulated process of its own.\n"
            "\n"
            "Options:\n"
            "  --json     one JSON object per line instead of text\n"
            "  --log      show the library's log lines as they are written\n"
            "  --no-sim   use a declared HAL only; fail when there is none\n"
            "  --version  print torqctl's version and exit\n"
            "\n"
            "Commands:\n";
    for (const VerbInfo& entry : verbs()) {
        std::string line = "  " + std::string(entry.synopsis);
        out += line + "\n      " + entry.summary + "\n";
    }
    out += "\n"
           "Numbers are decimal or 0x-hex. Exit codes: 0 success, 1 the library reported a\n"
           "failure, 2 bad input, 3 no usable HAL.\n";
    return out;
}

std::string commandUsage(Verb verb) {
    const VerbInfo* entry = findVerb(verb);
    if (entry == nullptr) return "";
    return "Usage: torqctl " + std::string(entry->synopsis) + "\n  " + entry->summary + "\n";
}

std::string commandUsage(const std::string& word) {
    const VerbInfo* entry = findVerb(word);
    return entry == nullptr ? std::string() : commandUsage(entry->verb);
}

}  // namespace torqctl
