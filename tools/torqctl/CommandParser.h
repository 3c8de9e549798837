#pragma once

// torqctl's command language: from words (argv, or one line of a shell script) to a Command.
// Pure text processing: no binder, no library calls, no exceptions escape, so it can be fed
// arbitrary input.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace torqctl {

struct IdValue {
    int32_t id = 0;
    std::string value;
};

struct PathValue {
    std::string path;
    std::optional<std::string> value;
};

// One parsed command. Which fields mean something depends on the command (see usage texts).
struct Command {
    std::string word;   // the command ("resctl"); empty for a blank or comment-only shell line
    bool help = false;  // "<command> --help": show its usage instead of running it
    std::string topic;  // help: the command asked about
    std::string name;   // action, property, pattern, file, history/prop operation
    std::string text;   // scene, package, notify data, property name
    std::string value;  // property value
    std::string identity = "torqctl";
    std::string notifyName = "torqctl";
    std::string via;      // release/state: which front end
    int32_t number = 0;   // event id, handle, SA id, mode, dump code, src, rule id, type
    int32_t number2 = 0;  // notify type, rule status, zel-notify second
    int32_t number3 = 0;  // notify param
    int32_t param = -1;
    int32_t option = -1;
    int32_t level = -1;
    int32_t tag = 0;
    int64_t duration = 0;          // milliseconds
    std::optional<int64_t> forMs;  // listen time, wait time, restart delay
    int64_t value64 = 0;           // sysinfo value
    bool callback = false;
    bool map = false;
    bool platform = false;
    bool allDumps = false;
    std::vector<IdValue> resources;
    std::vector<PathValue> paths;
    std::vector<int32_t> ids;
};

struct GlobalOptions {
    bool json = false;
    bool log = false;
    bool noSim = false;
    bool version = false;  // --version: print the version, run no command
};

struct ParseResult {
    bool ok = false;
    Command command;
    GlobalOptions global;
    std::string error;  // one line, when !ok
};

// argv without the program name. Global options may stand anywhere before "--".
ParseResult parseCommandLine(const std::vector<std::string>& args);

// One line of a shell script: split into words (quotes as in sh), then parsed. Global options
// and the commands "shell" and "tour" are refused here.
ParseResult parseShellLine(const std::string& line);

// Words of a shell line: blanks separate; '...' is literal; "..." knows \" and \\; a backslash
// outside quotes escapes the next byte; '#' at the start of a word comments out the rest.
// False (with a message) for an unterminated quote.
bool tokenize(const std::string& line, std::vector<std::string>* words, std::string* error);

// Numbers: decimal or 0x-hex, optional sign, within int32. Opcodes may also be written as
// unsigned 32-bit values (0x80000000 and above keep their bits).
bool parseInt32(const std::string& text, int32_t* out);
bool parseInt64(const std::string& text, int64_t* out);
bool parseOpcode(const std::string& text, int32_t* out);

// `text` in lower case (ASCII letters only).
std::string lower(std::string text);

// The dump table for a code "0".."8" or a name ("RunMap", case-insensitive). -1 if neither.
int32_t dumpCodeFor(const std::string& text);
const char* dumpName(int32_t code);

std::string usage();
// What "help [COMMAND]" or "COMMAND --help" shows.
std::string helpText(const Command& command);
// The usage of one command; empty for an unknown name.
std::string commandUsage(const std::string& word);

}  // namespace torqctl
