// A command of the language is a line in kVerbs: its synopsis gives its name, its options (and
// the values an option allows, "--via a|b") and its usage text, its Arg list the fields its other
// words go to (kOptionFields those of the options). Parser::interpret adds what a command checks
// beyond that.

#include "CommandParser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <limits>
#include <sstream>
#include <type_traits>

namespace torqctl {

namespace {

// How a command takes one of its words (a "rest" kind takes all words from there on).
enum class Take {
    kText,          // as it is, into a string field
    kNumber,        // an int32, into a number field
    kWide,          // an int64, into value64
    kOpcodeValues,  // rest: OPCODE=VALUE resources
    kIdValues,      // rest: ID=VALUE resources, the id a plain number
    kPathValues,    // rest: PATH=VALUE
    kPaths,         // rest: PATH or PATH=VALUE
    kOpcodes,       // rest: opcodes, into ids
    kNumbers,       // rest: numbers, into ids
    kListened,      // rest: opcodes into ids, or paths (words starting with '/')
};

// A string field takes the word as it is; a number field an int32 (`what` names it in errors).
struct Arg {
    Arg(std::string Command::*field) : take(Take::kText), text(field) {}
    Arg(const char* name, int32_t Command::*field = &Command::number)
        : take(Take::kNumber), what(name), number(field) {}
    Arg(Take kind, const char* name = "") : take(kind), what(name) {}

    Take take;
    const char* what = "";  // what an error calls the word
    int32_t Command::*number = nullptr;
    std::string Command::*text = nullptr;
};

template <typename... Args>
std::vector<Arg> takes(Args... args) {
    return {Arg(args)...};
}

// One command of the language. Its synopsis is the whole description of its words: it starts
// with the command's name and lists its options, "[--tag N]" one that takes a value, "[--map]"
// one that takes none. `args` says where its other words go.
struct VerbInfo {
    size_t minArgs;
    size_t maxArgs;
    const char* synopsis;
    const char* summary;
    std::vector<Arg> args = {};
};

constexpr size_t kMany = std::numeric_limits<size_t>::max();

// In the order of the usage text.
const VerbInfo kVerbs[] = {
        {0, 1, "help [COMMAND]", "show this text, or one command's usage", takes(&Command::topic)},
        {0, 1, "actions [PATTERN]",
         "list the action table (event id and name), optionally only names containing PATTERN",
         takes(&Command::name)},
        {1, 1, "acquire ACTION [--scene TEXT] [--identity TEXT] [--timeout MS]",
         "acquire an action by name through ZelEventAcquireWrapper (\"VARDEX_\" is added when "
         "missing)",
         takes(&Command::name)},
        {1, kMany,
         "acquire-id EVENT_ID [--pkg TEXT] [--identity TEXT] [--duration MS] [OPCODE=VALUE...]",
         "acquire an event by id through ZelEventAcquire, with optional resources",
         takes("event id", Take::kOpcodeValues)},
        {1, kMany,
         "res-acquire [--platform [--pkg TEXT]] [--identity TEXT] [--duration MS] OPCODE=VALUE...",
         "acquire resources through ZelResAcquire; with --platform through ZelPlatformResAcquire, "
         "which also takes a package",
         takes(Take::kOpcodeValues)},
        {1, 1, "release HANDLE [--via wrapper|zel|halclient|sa]",
         "release a handle (default: the front end that made it in a shell, else zel)",
         takes("handle")},
        {1, kMany,
         "resctl [--duration MS] [--param N] [--option N] [--level N] [--tag N] [--callback] "
         "OPCODE=VALUE...",
         "resource control by opcode through torqHalclient::torqResCtlRequest",
         takes(Take::kOpcodeValues)},
        {1, kMany,
         "resctl-path [--duration MS] [--param N] [--option N] [--level N] [--tag N] [--callback] "
         "PATH=VALUE...",
         "resource control by path through torq_resctl_request_by_path (or "
         "..._with_callback_by_path)",
         takes(Take::kPathValues)},
        {1, 1,
         "sactl ID [--duration MS] [--param N] [--option N] [--level N] [--tag N] [--callback]",
         "SA control through torqHalclient::torqSACtlRequest", takes("SA id")},
        {1, kMany, "state [--via halclient|zel|zel-one] [--tag N] OPCODE...",
         "current values through torqResStateRequest (halclient), ZelMutiResStateRequest (zel) or "
         "ZelResStateRequest (zel-one)",
         takes(Take::kOpcodes)},
        {1, kMany, "state-path [--map] [--tag N] PATH[=VALUE]...",
         "current values by path through torq_res_state_request_by_path (or ..._map_...)",
         takes(Take::kPaths)},
        {1, kMany, "listen [--for MS] [--tag N] OPCODE...|PATH...",
         "listen for changes (torqResListeningRegister, or the by-path form for paths) and print "
         "callbacks as they arrive; outside a shell for --for MS (default 5000)",
         takes(Take::kListened)},
        {1, 1, "unlisten HANDLE", "stop listening through torqResListeningUnRegister",
         takes("handle")},
        {1, kMany, "thermal [--tag N] ID=LEVEL...", "pass thermal levels through torqThermalNotify",
         takes(Take::kIdValues)},
        {0, kMany, "thermal-listen [--for MS] [ID...]",
         "listen for thermal levels through torqThermalListeningRegister (no ID: all)",
         takes(Arg(Take::kNumbers, "thermal id"))},
        {1, 1, "thermal-unlisten HANDLE",
         "stop thermal listening through torqThermalListeningUnregister", takes("handle")},
        {2, 4, "notify SRC TYPE [PARAM [DATA]] [--name TEXT]",
         "a numbered notification through ZelNotifyWapper",
         takes("SRC", Arg("TYPE", &Command::number2), Arg("PARAM", &Command::number3),
               &Command::text)},
        {2, kMany, "zel-notify FIRST SECOND [VALUE...]", "a notification through ZelNotify",
         takes("FIRST", Arg("SECOND", &Command::number2), Arg(Take::kNumbers, "VALUE"))},
        {2, kMany, "rule RULE_ID STATUS [OPCODE=VALUE...]", "switch a rule through zelRuleCtl",
         takes("RULE_ID", Arg("STATUS", &Command::number2), Take::kOpcodeValues)},
        {2, 2, "sysinfo TYPE VALUE", "pass system information through setRelatedSysInfo",
         takes("TYPE", Take::kWide)},
        {1, 1, "history on|off|show",
         "switch history recording (torqHistoryRequestRecordOn/Off) or read it (ZelGetHistory)",
         takes(&Command::name)},
        {1, 1, "pm MODE", "power-mode status through ZelGetPMStatus", takes("MODE")},
        {1, 1, "dump CODE|NAME|all",
         "ask the HAL to dump a table (codes 0-8: ToDoQueue RunMap ActiveResMap ResRequest ResInfo "
         "SAInfo PidFdList PidfdMonitorMap ResRecordList) through torqDump*"},
        {2, 3, "prop get NAME | prop set NAME VALUE",
         "read or write a HAL property through torqPropertyGet/torqPropertySet",
         takes(&Command::name, &Command::text, &Command::value)},
        {0, 0, "init", "connect both front ends: torq_init and zelInit"},
        {0, 0, "journal", "everything the simulated HAL received and sent so far"},
        {1, 1, "wait MS", "pause, letting callbacks arrive"},
        {0, 0, "kill-hal", "kill the simulated HAL's process (as if it crashed)"},
        {0, 0, "restart-hal [--after MS]",
         "start the simulated HAL again (a fresh one), now or after MS in the background"},
        {0, 1, "shell [FILE]",
         "run commands line by line from FILE or standard input; handles and listeners persist",
         takes(&Command::name)},
        {0, 0, "tour",
         "walk through every front end, a callback, a HAL death and the reconnection; exit code 0 "
         "only if every step worked"},
};

// Where the value of an option goes; the options not listed take milliseconds.
struct OptionField {
    const char* name;
    std::string Command::*text = nullptr;
    int32_t Command::*number = nullptr;
    bool Command::*flag = nullptr;
};

const OptionField kOptionFields[] = {
        {"--scene", &Command::text},
        {"--pkg", &Command::text},
        {"--identity", &Command::identity},
        {"--name", &Command::notifyName},
        {"--via", &Command::via},
        {"--param", nullptr, &Command::param},
        {"--option", nullptr, &Command::option},
        {"--level", nullptr, &Command::level},
        {"--tag", nullptr, &Command::tag},
        {"--callback", nullptr, nullptr, &Command::callback},
        {"--map", nullptr, nullptr, &Command::map},
        {"--platform", nullptr, nullptr, &Command::platform},
};

std::string wordOf(const VerbInfo& entry) {
    const std::string synopsis = entry.synopsis;
    return synopsis.substr(0, synopsis.find(' '));
}

// What the synopsis says of option `name`: none when the command has no such option, "" when it
// takes no value, else the placeholder of its value. An option whose bracket does not close on
// it and is followed by a placeholder ("[--tag N]") takes a value; a placeholder of words
// separated by '|' ("[--via zel|sa]") lists the values it allows.
std::optional<std::string> optionValue(const VerbInfo& entry, const std::string& name) {
    std::istringstream in(entry.synopsis);
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    for (size_t i = 0; i < words.size(); ++i) {
        std::string word = words[i].substr(words[i].find_first_not_of('['));
        const bool closed = word.back() == ']';
        if (word.substr(0, word.find(']')) != name || name.compare(0, 2, "--") != 0) continue;
        if (closed || i + 1 == words.size() || words[i + 1][0] == '[' || words[i + 1][0] == '-') {
            return "";
        }
        return words[i + 1].substr(0, words[i + 1].find(']'));
    }
    return std::nullopt;
}

const VerbInfo* findVerb(const std::string& word) {
    const auto is = [&](const VerbInfo& entry) { return word == wordOf(entry); };
    const VerbInfo* entry = std::find_if(std::begin(kVerbs), std::end(kVerbs), is);
    return entry == std::end(kVerbs) ? nullptr : entry;
}

// The flag a global option sets; null for any other word.
bool GlobalOptions::*globalOption(const std::string& word) {
    static const std::pair<const char*, bool GlobalOptions::*> kOptions[] = {
            {"--json", &GlobalOptions::json},
            {"--log", &GlobalOptions::log},
            {"--no-sim", &GlobalOptions::noSim},
            {"--version", &GlobalOptions::version}};
    for (const auto& [name, flag] : kOptions) {
        if (word == name) return flag;
    }
    return nullptr;
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

// `text` as a T within [min, max]. A value beyond T's positive range (an opcode written as an
// unsigned number) keeps its bits.
template <typename T>
bool parseIn(const std::string& text, int64_t min, int64_t max, T* out) {
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
    *out = static_cast<T>(static_cast<std::make_unsigned_t<T>>(value));
    return true;
}

class Parser {
  public:
    Parser(const VerbInfo& entry, std::vector<std::string> words)
        : info_(entry), word_(wordOf(entry)), words_(std::move(words)) {}

    ParseResult run() {
        result_.command.word = word_;
        result_.ok = splitOptions() && (result_.command.help || (argumentCount() && interpret()));
        return result_;
    }

  private:
    // Always false, so that a check can end with `return fail(...)`. The first error stays.
    bool fail(const std::string& message) {
        if (result_.error.empty()) result_.error = message;
        return false;
    }

    bool argumentCount() {
        if (args_.size() < info_.minArgs) {
            return fail("missing argument for '" + word_ + "' (usage: " + info_.synopsis + ")");
        }
        if (args_.size() > info_.maxArgs) {
            return fail("too many arguments for '" + word_ + "': " + shown(args_[info_.maxArgs]));
        }
        return true;
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
            const std::optional<std::string> value = optionValue(info_, name);
            if (!value) return fail("unknown option " + shown(name) + " for '" + word_ + "'");
            if (value->empty()) {
                if (eq != std::string::npos) return fail("option " + name + " takes no value");
                options_.emplace_back(name, "");
            } else if (eq != std::string::npos) {
                options_.emplace_back(name, w.substr(eq + 1));
            } else if (i + 1 < words_.size()) {
                options_.emplace_back(name, words_[++i]);
            } else {
                return fail("option " + name + " needs a value");
            }
        }
        return true;
    }

    // Whether `value` is one of the values the synopsis allows for option `name`, if it lists
    // them (only --via, which names a front end, does).
    bool allowed(const std::string& name, const std::string& value) {
        const std::string choices = "|" + *optionValue(info_, name) + "|";
        if (choices.find('|', 1) == choices.size() - 1) return true;
        return value.empty() || choices.find("|" + value + "|") != std::string::npos ||
               fail("unknown front end for " + name + ": " + shown(value));
    }

    bool applyOptions() {
        Command& c = result_.command;
        bool pkg = false;
        for (const auto& [name, value] : options_) {
            if (!allowed(name, value)) return false;
            pkg = pkg || name == "--pkg";
            const OptionField* field = nullptr;
            for (const OptionField& f : kOptionFields) {
                if (name == f.name) field = &f;
            }
            if (field != nullptr && field->text != nullptr) {
                c.*field->text = value;
            } else if (field != nullptr && field->flag != nullptr) {
                c.*field->flag = true;
            } else if (field != nullptr && !parseInt32(value, &(c.*field->number))) {
                return fail("malformed number for " + name + ": " + shown(value));
            } else if (field == nullptr) {
                // Milliseconds: an int32, but resctl-path carries a 64-bit duration.
                const bool wide = name == "--duration" && word_ == "resctl-path";
                int64_t ms = 0;
                if (!parseIn(value, wide ? INT64_MIN : INT32_MIN, wide ? INT64_MAX : INT32_MAX,
                             &ms)) {
                    return fail("malformed milliseconds for " + name + ": " + shown(value));
                }
                if (name == "--timeout" || name == "--duration") {
                    c.duration = ms;
                } else if (ms < 0) {
                    return fail(name + " cannot be negative");
                } else {
                    c.forMs = ms;  // --for, --after
                }
            }
        }
        // ZelResAcquire takes no package: rather than quietly calling another function, a
        // package asks for the platform acquisition to be named.
        if (word_ == "res-acquire" && pkg && !c.platform) {
            return fail("--pkg needs --platform (only ZelPlatformResAcquire takes a package)");
        }
        return true;
    }

    bool number(const std::string& word, const char* what, int32_t* out) {
        if (parseInt32(word, out)) return true;
        return fail("malformed " + std::string(what) + " " + shown(word));
    }

    bool opcode(const std::string& word, int32_t* out) {
        if (parseOpcode(word, out)) return true;
        return fail("malformed opcode " + shown(word) + " (expected a number such as 0x010108a0)");
    }

    // OPCODE=VALUE, or ID=VALUE with a plain number for an id.
    bool idValue(const std::string& word, bool asOpcode) {
        const char* idWhat = asOpcode ? "OPCODE" : "ID";
        const size_t eq = word.find('=');
        if (eq == std::string::npos) {
            return fail("expected " + std::string(idWhat) + "=VALUE, got " + shown(word));
        }
        IdValue iv;
        const std::string id = word.substr(0, eq);
        if (asOpcode ? !opcode(id, &iv.id) : !number(id, idWhat, &iv.id)) return false;
        iv.value = word.substr(eq + 1);
        if (iv.value.empty()) return fail("missing value in " + shown(word));
        result_.command.resources.push_back(std::move(iv));
        return true;
    }

    bool pathWord(const std::string& word, bool needValue) {
        PathValue pv;
        const size_t eq = word.find('=');
        pv.path = word.substr(0, eq);
        if (pv.path.empty()) return fail("missing path in " + shown(word));
        if (eq != std::string::npos) {
            pv.value = word.substr(eq + 1);
            if (pv.value->empty()) return fail("missing value in " + shown(word));
        } else if (needValue) {
            return fail("expected PATH=VALUE, got " + shown(word));
        }
        result_.command.paths.push_back(std::move(pv));
        return true;
    }

    // The words as the command's Arg list says; its last Arg also takes all words beyond it.
    bool takeArgs() {
        Command& c = result_.command;
        for (size_t i = 0; i < args_.size() && !info_.args.empty(); ++i) {
            const Arg& arg = info_.args[std::min(i, info_.args.size() - 1)];
            const std::string& word = args_[i];
            int32_t id = 0;
            bool ok = true;
            switch (arg.take) {
                case Take::kText:
                    c.*arg.text = word;
                    break;
                case Take::kNumber:
                    ok = number(word, arg.what, &(c.*arg.number));
                    break;
                case Take::kWide:
                    ok = parseInt64(word, &c.value64) || fail("malformed VALUE " + shown(word));
                    break;
                case Take::kOpcodeValues:
                case Take::kIdValues:
                    ok = idValue(word, arg.take == Take::kOpcodeValues);
                    break;
                case Take::kPathValues:
                case Take::kPaths:
                    ok = pathWord(word, arg.take == Take::kPathValues);
                    break;
                case Take::kListened:
                    if (word.rfind('/', 0) == 0) {
                        c.paths.push_back({word, std::nullopt});
                        break;
                    }
                    [[fallthrough]];
                case Take::kOpcodes:
                case Take::kNumbers:
                    ok = arg.take == Take::kNumbers ? number(word, arg.what, &id)
                                                    : opcode(word, &id);
                    c.ids.push_back(id);
                    break;
            }
            if (!ok) return false;
        }
        return true;
    }

    // The options, the words, and what a command asks of them beyond their form.
    bool interpret() {
        if (!applyOptions()) return false;
        Command& c = result_.command;
        const std::string& w = word_;
        if (w == "state" && c.via == "zel-one" && args_.size() != 1) {
            return fail("--via zel-one reads exactly one opcode");
        }
        if (!takeArgs()) return false;
        if (w == "help") {
            return args_.empty() || findVerb(c.topic) != nullptr ||
                   fail("unknown command " + shown(c.topic));
        } else if (w == "acquire") {
            return !c.name.empty() || fail("missing action name");
        } else if (w == "state-path" && c.map) {
            return std::all_of(c.paths.begin(), c.paths.end(), [](auto& pv) { return pv.value; }) ||
                   fail("--map needs PATH=VALUE for every path");
        } else if (w == "listen") {
            return c.paths.empty() || c.ids.empty() ||
                   fail("listen takes opcodes or paths, not both");
        } else if (w == "history") {
            return c.name == "on" || c.name == "off" || c.name == "show" ||
                   fail("history takes on, off or show, not " + shown(c.name));
        } else if (w == "dump") {
            c.allDumps = args_[0] == "all";
            c.number = c.allDumps ? 0 : dumpCodeFor(args_[0]);
            return c.number >= 0 ||
                   fail("unknown dump table " + shown(args_[0]) + " (0-8, a table name or all)");
        } else if (w == "prop") {
            return (c.name == "get" && args_.size() == 2) ||
                   (c.name == "set" && args_.size() == 3) ||
                   fail("usage: prop get NAME | prop set NAME VALUE");
        } else if (w == "wait") {
            int64_t ms = 0;
            if (!parseIn(args_[0], 0, INT32_MAX, &ms)) {
                return fail("malformed milliseconds " + shown(args_[0]));
            }
            c.forMs = ms;
        }
        return true;
    }
    const VerbInfo& info_;
    const std::string word_;
    std::vector<std::string> words_;
    std::vector<std::string> args_;
    std::vector<std::pair<std::string, std::string>> options_;
    ParseResult result_;
};

ParseResult parseWords(std::vector<std::string> words, GlobalOptions global) {
    ParseResult result;
    const VerbInfo* entry = words.empty() ? nullptr : findVerb(words[0]);
    if (entry != nullptr) {
        words.erase(words.begin());
        result = Parser(*entry, std::move(words)).run();
    } else {
        result.error = (words.empty() ? "missing command" : "unknown command " + shown(words[0])) +
                       " (try 'torqctl help')";
    }
    result.global = global;
    return result;
}

}  // namespace

bool parseInt32(const std::string& text, int32_t* out) {
    return parseIn(text, INT32_MIN, INT32_MAX, out);
}

bool parseInt64(const std::string& text, int64_t* out) {
    return parseIn(text, INT64_MIN, INT64_MAX, out);
}

bool parseOpcode(const std::string& text, int32_t* out) {
    return parseIn(text, INT32_MIN, UINT32_MAX, out);
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

const char* dumpName(int32_t code) {
    static const char* const kNames[] = {"ToDoQueue",  "RunMap",          "ActiveResMap",
                                         "ResRequest", "ResInfo",         "SAInfo",
                                         "PidFdList",  "PidfdMonitorMap", "ResRecordList"};
    return code >= 0 && code <= 8 ? kNames[code] : nullptr;
}

int32_t dumpCodeFor(const std::string& text) {
    int32_t code = -1;
    if (parseInt32(text, &code)) return dumpName(code) != nullptr ? code : -1;
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
            continue;
        }
        if (c == '#' && !inWord) break;
        inWord = true;
        if (c == '\'' || c == '"') {
            size_t j = i + 1;
            for (; j < line.size() && line[j] != c; ++j) {
                // Only "..." knows escapes, and only \" and \\.
                if (c == '"' && line[j] == '\\' && j + 1 < line.size() &&
                    (line[j + 1] == '"' || line[j + 1] == '\\')) {
                    ++j;
                }
                word += line[j];
            }
            if (j >= line.size()) {
                *error = std::string("unterminated ") + c + " quote";
                return false;
            }
            i = j;
        } else if (c == '\\') {
            if (i + 1 < line.size()) word += line[++i];
        } else {
            word += c;
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
        if (bool GlobalOptions::*flag = ended ? nullptr : globalOption(a)) {
            global.*flag = true;
        } else {
            words.push_back(a);
        }
    }
    if (global.version) {
        ParseResult r;
        r.global = global;
        r.ok = words.empty();
        if (!r.ok) r.error = "--version takes no command";
        return r;
    }
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) words[0] = "help";
    return parseWords(std::move(words), global);
}

ParseResult parseShellLine(const std::string& line) {
    ParseResult result;
    std::vector<std::string> words;
    if (!tokenize(line, &words, &result.error)) return result;
    if (words.empty()) {
        result.ok = true;  // no command
        return result;
    }
    for (const std::string& w : words) {
        if (w == "--") break;
        if (globalOption(w) != nullptr) {
            result.error = "global option " + w + " is only accepted on torqctl's command line";
            return result;
        }
    }
    result = parseWords(std::move(words), GlobalOptions{});
    if (result.ok && (result.command.word == "shell" || result.command.word == "tour") &&
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
    for (const VerbInfo& entry : kVerbs) {
        out += "  " + std::string(entry.synopsis) + "\n      " + entry.summary + "\n";
    }
    out += "\n"
           "Numbers are decimal or 0x-hex. Exit codes: 0 success, 1 the library reported a\n"
           "failure, 2 bad input, 3 no usable HAL.\n";
    return out;
}

std::string helpText(const Command& command) {
    if (command.help) return commandUsage(command.word);
    return command.topic.empty() ? usage() : commandUsage(command.topic);
}

std::string commandUsage(const std::string& word) {
    const VerbInfo* entry = findVerb(word);
    if (entry == nullptr) return "";
    return "Usage: torqctl " + std::string(entry->synopsis) + "\n  " + entry->summary + "\n";
}

}  // namespace torqctl
