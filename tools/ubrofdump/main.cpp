// ubrofdump: a command-line host that loads the UBROF parser bundle and prints what its views answer,
// and shows the program a file holds as it really is.
#include "host/CoreException.h"
#include "tools/ubrofdump/Diagnosis.h"
#include "tools/ubrofdump/ExportCommand.h"
#include "tools/ubrofdump/Host.h"
#include "tools/ubrofdump/Json.h"
#include "tools/ubrofdump/Matching.h"
#include "tools/ubrofdump/ProgramCommands.h"
#include "tools/ubrofdump/ProgramText.h"
#include "tools/ubrofdump/Report.h"
#include "tools/ubrofdump/Stream.h"
#include "tools/ubrofdump/Text.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace ubrofdump {
namespace {

struct Options {
    bool json = false;
    bool data = false;
    bool members = false;
    bool help = false;
    bool version = false;
    bool newerVersions = false;
    std::optional<std::string> plugin;
    std::optional<std::string> pc;
    std::optional<std::string> scope;
    std::vector<std::string> mapPaths;
    std::vector<std::string> positional;
    ProgramOptions program;
};

// Options that belong to some commands only.
enum CommandOption : unsigned { kDataOption = 1, kPcOption = 2, kScopeOption = 4, kMembersOption = 8 };

/// Everything one command needs: its arguments, what its text form needs, and the module's
/// report on the file, loaded the first time a command asks for it.
class Invocation {
public:
    Invocation(const Options& options, std::string file, std::vector<std::string> args)
        : options(options), file(std::move(file)), args(std::move(args))
    {
        for (const std::string& mapping : options.mapPaths)
            paths_.add(mapping);
    }

    const Options& options;
    const std::string file;
    const std::vector<std::string> args;
    TextRequest request;

    Report& report()
    {
        if (report_)
            return *report_;
        try {
            host_.emplace(options.plugin.value_or(Host::defaultModulePath()), options.newerVersions);
            factory_ = host_->parserFactory();
        } catch (const PluginError& e) {
            throw Failure{kNoModule, "no-module", e.what(), std::nullopt};
        }
        if (auto refused = refuseSpecialFile(file))
            throw *refused;
        try {
            parser_ = factory_->createObjectfileParser(file);
        } catch (const tarn::CoreException& e) {
            throw explainUnparsed(file, moduleStatus(e), options.newerVersions);
        } catch (const std::exception& e) {
            throw Failure{kUnreadable, "failed", file + " could not be read: " + e.what(), std::nullopt};
        }
        report_.emplace(parser_, file, paths_);
        return *report_;
    }

    bool reportLoaded() const { return report_.has_value(); }
    const PathMap& paths() const { return paths_; }

    /// Set by a command that answers in part: why the rest is missing. The answer is printed,
    /// then this failure, whose exit status the run ends with.
    std::optional<Failure> unanswered;

private:
    // Declared first, so destroyed last: everything the module's code made must go before it.
    std::optional<Host> host_;
    boost::shared_ptr<tarn::IObjectfileParserFactory> factory_;
    boost::shared_ptr<tarn::IObjectfileParser> parser_;
    PathMap paths_;
    std::optional<Report> report_;
};

std::optional<uint64_t> pcOption(Invocation& in)
{
    if (!in.options.pc)
        return std::nullopt;
    return parseNumber(*in.options.pc, "--pc");
}

/// What --help lists a command under: what the debugger module answers, through the bundle as a
/// debugger host sees it, or what the program holds, read from the file by the program model.
enum class Group { Module, Program };

/// A command: its name, its arguments after FILE (least, most) with their synopsis, the
/// command-specific options it takes, its help, what it does, and its group.
struct Command {
    const char* name;
    const char* synopsis;
    size_t least, most;
    unsigned options;
    const char* help;
    Answer (*run)(Invocation&);
    Group group = Group::Module;
};

/// The module's counts, then the program's account. The program's part is read first and its
/// model released before the module parses the file: the two are never in memory together.
Answer summarise(Invocation& in)
{
    boost::json::object program;
    std::optional<Failure> programFailure;
    try {
        program = programSummary(in.file);
    } catch (const Failure& failure) {
        programFailure = failure;
    }
    Answer answer;
    try {
        answer = in.report().summary();
    } catch (const Failure& refused) {
        // A version the module was not let read: the program's part is still worth showing, and
        // the refusal follows it. A file neither reads fails with the module's report, or, when
        // its bytes are at fault, with the program's account of where.
        if (refused.code != "newer-version")
            throw;
        if (programFailure && programFailure->code == "damaged") {
            programFailure->module = refused.module;
            throw *programFailure;
        }
        if (programFailure)
            throw;
        in.unanswered = refused;
        answer = Answer("Summary", boost::json::object{{"File", in.file}});
    }
    if (programFailure)
        throw *programFailure;
    for (auto& entry : program)
        answer.value.as_object()[entry.key()] = std::move(entry.value());
    return answer;
}

constexpr size_t kAnyNumber = static_cast<size_t>(-1);

const Command kCommands[] = {
    {"summary", "FILE", 0, 0, 0,
     "counts of segments, sources, code areas, modules,\nfunctions and global symbols (the default command);\n"
     "then, from the program: its format version, creation\ndate, processor, memories and largest modules; of\n"
     "a version 10 or 11 file the program's part alone,\nunless --newer-versions",
     summarise},
    {"segments", "FILE [--data]", 0, 0, kDataOption, "program segments, with their bytes on --data",
     [](Invocation& in) {
         in.request.withData = in.options.data;
         return in.report().segments(in.options.data);
     }},
    {"sources", "FILE", 0, 0, 0, "source files", [](Invocation& in) { return in.report().sources(); }},
    {"lines", "FILE [START [END]]", 0, 2, 0, "code areas of an address range (all by default)",
     [](Invocation& in) {
         TextRequest& r = in.request;
         r.startGiven = in.args.size() > 0;
         r.endGiven = in.args.size() > 1;
         r.start = r.startGiven ? parseNumber(in.args[0], "START") : 0;
         r.end = r.endGiven ? parseNumber(in.args[1], "END") : 0xFFFFFFFF;
         return in.report().lines(r.start, r.end);
     }},
    {"line2addr", "FILE SOURCE LINE", 2, 2, 0,
     "the address of a source line; SOURCE may be the file's\nbase name or any unique end of its path",
     [](Invocation& in) {
         const uint64_t line = parseNumber(in.args[1], "LINE");
         if (line > 0xFFFFFFFF)
             throw usageError("LINE out of range: " + in.args[1]);
         return in.report().lineToAddress(in.args[0], static_cast<uint32_t>(line));
     }},
    {"scope", "FILE PC [--members]", 1, 1, kMembersOption, "the innermost scope at PC and its variables",
     [](Invocation& in) {
         in.request.pc = parseNumber(in.args[0], "PC");
         return in.report().scope(in.request.pc, in.options.members);
     }},
    {"symbols", "FILE [--pc ADDR] [--members]", 0, 0, kPcOption | kMembersOption,
     "the symbol tree (modules, functions, variables), then\nthe types it names with their members",
     [](Invocation& in) {
         in.request.pc = pcOption(in).value_or(kNoPc);
         return in.report().symbols(in.request.pc, in.options.members);
     }},
    {"lookup", "FILE NAME [--pc ADDR | --scope ID] [--members]", 1, 1, kPcOption | kScopeOption | kMembersOption,
     "a symbol by name: from the scope at ADDR, from the scope\ncontext ID, or globally; a qualified name\n"
     "(Class::method) globally, placed by the program",
     [](Invocation& in) {
         if (isQualified(in.args[0])) {
             if (in.options.pc || in.options.scope)
                 throw usageError("a qualified name says where it is found; give it without --pc or --scope");
             in.request.subject = in.args[0];
             // Placed by the program, whose model is released before the module parses the file.
             const std::vector<PlacedName> placed = placeQualified(in.file, in.args[0]);
             return in.report().lookupPlaced(in.args[0], placed, in.options.members);
         }
         const std::optional<uint64_t> pc = pcOption(in);
         std::optional<uint64_t> scope;
         if (in.options.scope)
             scope = parseNumber(*in.options.scope, "--scope");
         in.request.pc = pc.value_or(kNoPc);
         in.request.subject = in.args[0];
         return in.report().lookup(in.args[0], pc, scope, in.options.members);
     }},
    {"context", "FILE ID [--members]", 1, 1, kMembersOption, "the symbol context of an ID",
     [](Invocation& in) {
         const uint64_t id = parseNumber(in.args[0], "ID");
         in.request.subject = std::to_string(id);
         return in.report().context(id, in.options.members);
     }},
    {"compiler", "FILE", 0, 0, 0, "machine, producer and base types",
     [](Invocation& in) { return in.report().compiler(); }},
    {"addr2line", "FILE ADDR...", 1, kAnyNumber, 0,
     "function, source file and line of each address, and\nat a function's entry the line of its name; ADDR may\n"
     "also be a function's name, NAME[+OFFSET]",
     [](Invocation& in) { return addr2line(in.file, in.args, in.paths()); }, Group::Program},
    {"nm", "FILE [PATTERN] [nm options]", 0, 1, 0,
     "address, size, kind and qualified name of every\nfunction and variable, by address; PATTERN is a glob",
     [](Invocation& in) { return nm(in.file, in.args, in.options.program, in.request.widths); }, Group::Program},
    {"size", "FILE [--by memory|module|function | --stack] [--top N]", 0, 0, 0,
     "bytes per memory, per module and per function,\nlargest first",
     [](Invocation& in) { return size(in.file, in.options.program, in.request.widths); }, Group::Program},
    {"export", "FILE --format FORMAT -o OUT [export options]", 0, 0, 0,
     "the program as a HEX, S-record, binary or ELF file\n(with DWARF, for objdump, gdb and simavr)",
     [](Invocation& in) { return exportProgram(in.file, in.options.program); }, Group::Program},
};

const Command* findCommand(const std::string& name)
{
    for (const Command& command : kCommands)
        if (name == command.name)
            return &command;
    return nullptr;
}

std::string usageText()
{
    std::string text = "usage: ubrofdump [OPTIONS] [COMMAND] FILE [ARGUMENTS]\n\n"
                       "Loads the UBROF parser module the way a debugger does and prints what it answers about FILE,\n"
                       "or reads the program FILE holds as it really is.\n";
    const struct {
        Group group;
        const char* title;
    } groups[] = {
        {Group::Module, "What the debugger module answers (through the module, as a debugger host sees it)"},
        {Group::Program, "What the program holds (read from the file: true function ranges, every code byte\n"
                         "on a line, qualified names)"},
    };
    constexpr size_t kHelpColumn = 36;
    for (const auto& group : groups) {
        text += std::string("\n") + group.title + ":\n";
        for (const Command& command : kCommands) {
            if (command.group != group.group)
                continue;
            std::string line = std::string("  ") + command.name + " " + command.synopsis;
            line += line.size() + 2 <= kHelpColumn ? std::string(kHelpColumn - line.size(), ' ')
                                                   : "\n" + std::string(kHelpColumn, ' ');
            for (const char* c = command.help; *c; ++c)
                line += *c == '\n' ? "\n" + std::string(kHelpColumn, ' ') : std::string(1, *c);
            text += line + "\n";
        }
    }
    text += R"(
FILE may also come before COMMAND.

Options:
  --json                one JSON document on standard output, errors included
  --map-path FROM=TO    show source paths that begin with FROM as beginning with TO, with TO's
                        path separator after it (repeatable)
  --plugin PATH         the module file or module directory to load
  --newer-versions      let the module read format versions 10 and 11, as a host does that
                        sets the platform preference
                        )" + std::string(kReadNewerVersionsPreference) + R"( to true; without it the
                        debugger commands refuse them (the program commands always read them)
  --members             scope, symbols, lookup, context: a variable's members under the
                        variable too; they are always listed under its type
  --help, --version

Options of nm:
  --functions, --variables   only functions, only variables
  --module M                 only those of module M
  --size-sort, --name-sort   by size (smallest first) or by name instead of by address
  --stack                    functions only, each with its stack bytes per stack segment
                             (SEGMENT=BYTES; ? where the file does not say)
Kinds: T code (t: static), R a variable in code memory, D data (internal or the 8051's
external xdata), E EEPROM; lower case: static.

Options of size:
  --by memory|module|function   one list instead of all three
  --stack                       stack bytes per stack segment and function instead
  --top N                       the N largest of each list

)" + std::string(kExportOptionsHelp) + R"(
Numbers (addresses, lines, IDs) are decimal or hexadecimal with 0x. Exit status: 0 success;
1 FILE cannot be opened or parsed; 2 usage error; 3 nothing found; 4 the module cannot be loaded.
)";
    return text;
}

Options parseOptions(int argc, char** argv)
{
    Options options;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            options.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        auto value = [&]() -> std::string {
            if (equals != std::string::npos)
                return arg.substr(equals + 1);
            if (i + 1 >= argc)
                throw usageError(name + " needs a value");
            return argv[++i];
        };
        auto flag = [&](bool& target) {
            if (equals != std::string::npos)
                throw usageError(name + " takes no value");
            target = true;
        };
        if (name == "--json")
            flag(options.json);
        else if (name == "--data")
            flag(options.data);
        else if (name == "--members")
            flag(options.members);
        else if (name == "--help" || name == "-h")
            flag(options.help);
        else if (name == "--version")
            flag(options.version);
        else if (name == "--newer-versions")
            flag(options.newerVersions);
        else if (name == "--plugin")
            options.plugin = value();
        else if (name == "--pc")
            options.pc = value();
        else if (name == "--scope")
            options.scope = value();
        else if (name == "--map-path")
            options.mapPaths.push_back(value());
        else if (const std::optional<bool> takesValue = programOptionTakesValue(name)) {
            bool given = false;
            options.program.given.emplace_back(name, *takesValue ? value() : (flag(given), std::string()));
        } else
            throw usageError("unknown option " + name);
    }
    return options;
}

bool isFile(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// COMMAND FILE, FILE COMMAND, or FILE alone for the summary.
const Command& chooseCommand(std::vector<std::string>& positional)
{
    if (!positional.empty())
        if (const Command* command = findCommand(positional.front())) {
            positional.erase(positional.begin());
            return *command;
        }
    if (positional.size() > 1)
        if (const Command* command = findCommand(positional[1])) {
            positional.erase(positional.begin() + 1);
            return *command;
        }
    if (positional.size() > 1) {
        const std::string& unknown = isFile(positional[0]) ? positional[1] : positional[0];
        std::vector<std::string> names;
        for (const Command& command : kCommands)
            names.push_back(command.name);
        throw usageError("unknown command " + unknown + "; the commands are " + listed(names));
    }
    return kCommands[0];
}

void checkOptions(const Command& command, const Options& options)
{
    const auto allowed = [&](unsigned option) { return (command.options & option) != 0; };
    if (options.data && !allowed(kDataOption))
        throw usageError(std::string("--data does not belong to ") + command.name + "; it belongs to segments");
    if (options.pc && !allowed(kPcOption))
        throw usageError(std::string("--pc does not belong to ") + command.name + "; it belongs to symbols and lookup");
    if (options.members && !allowed(kMembersOption))
        throw usageError(std::string("--members does not belong to ") + command.name +
                         "; it belongs to scope, symbols, lookup and context");
    if (options.scope && !allowed(kScopeOption))
        throw usageError(std::string("--scope does not belong to ") + command.name + "; it belongs to lookup");
    if (options.scope && options.pc)
        throw usageError("lookup takes --pc or --scope, not both");
    if (options.newerVersions && command.group == Group::Program)
        throw usageError(std::string("--newer-versions does not belong to ") + command.name +
                         ": it lets the debugger module read format versions 10 and 11, which the program "
                         "commands read without it");
    checkProgramOptions(command.name, options.program);
}

void printFailure(const Failure& failure, bool json)
{
    if (json) {
        printJson(std::cout, errorDocument(failure));
        return;
    }
    std::cerr << "ubrofdump: " << failure.message << "\n";
    if (failure.module) {
        char code[24];
        std::snprintf(code, sizeof code, "0x%llx", static_cast<unsigned long long>(failure.module->code));
        std::cerr << "ubrofdump: the module answered error " << code << ": " << failure.module->message << "\n";
    }
    if (failure.code == "usage" && !failure.module)
        std::cerr << "Try 'ubrofdump --help'.\n";
}

bool wantsJson(int argc, char** argv)
{
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i)
        if (std::strcmp(argv[i], "--json") == 0)
            return true;
    return false;
}

int run(int argc, char** argv)
{
    Options options = parseOptions(argc, argv);
    if (options.help) {
        std::cout << usageText();
        return kOk;
    }
    if (options.version) {
        std::cout << "ubrofdump " << UBROF_VERSION << "\n";
        return kOk;
    }

    std::vector<std::string>& positional = options.positional;
    const Command& command = chooseCommand(positional);
    if (positional.empty())
        throw usageError("no FILE given");
    const std::vector<std::string> args(positional.begin() + 1, positional.end());
    if (args.size() < command.least || args.size() > command.most)
        throw usageError(std::string("wrong number of arguments for ") + command.name + ": it takes " +
                         command.name + " " + command.synopsis);
    checkOptions(command, options);

    Invocation invocation(options, positional.front(), args);
    // Declared after the invocation, so destroyed before it: a streamed answer holds the module's contexts.
    Answer answer;
    try {
        answer = command.run(invocation);
    } catch (const tarn::CoreException& e) {
        throw refusedRequest(e);
    }
    if (!options.json && invocation.reportLoaded())
        invocation.request.widths = invocation.report().addressWidths();
    int status = kOk;
    const std::optional<Failure>& unanswered = invocation.unanswered;
    if (answer.walk) {
        status = writeTree(std::cout, answer, invocation.request, options.json);
    } else if (options.json) {
        boost::json::object document = answerDocument(answer.key, std::move(answer.value));
        if (unanswered)
            document["Error"] = errorObject(*unanswered);
        printJson(std::cout, document);
    } else if (!printProgramText(std::cout, answer, invocation.request) && !printExportText(std::cout, answer)) {
        printText(std::cout, answer, invocation.request);
    }
    // A full disk shows only here; the answer must not pass for written.
    if (!std::cout.flush())
        throw Failure{kUnreadable, "failed", "standard output could not be written", std::nullopt};
    if (unanswered) {
        if (!options.json)
            printFailure(*unanswered, false);
        return unanswered->exitStatus;
    }
    return status;
}

} // namespace
} // namespace ubrofdump

int main(int argc, char** argv)
{
    using namespace ubrofdump;
    // Trees are written as they are walked, many small writes: iostreams buffer them better alone.
    std::ios::sync_with_stdio(false);
    const bool json = wantsJson(argc, argv);
    try {
        return run(argc, argv);
    } catch (const Failure& failure) {
        printFailure(failure, json);
        return failure.exitStatus;
    } catch (const std::exception& e) {
        printFailure(unexpectedFailure(e), json);
        return kUnreadable;
    }
}
