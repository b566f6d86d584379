// ubrofdump: a command-line host that loads the UBROF parser bundle and prints what its views answer.
#include "host/CoreException.h"
#include "tools/ubrofdump/Diagnosis.h"
#include "tools/ubrofdump/Host.h"
#include "tools/ubrofdump/Json.h"
#include "tools/ubrofdump/Matching.h"
#include "tools/ubrofdump/Report.h"
#include "tools/ubrofdump/Text.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
    bool help = false;
    bool version = false;
    std::optional<std::string> plugin;
    std::optional<std::string> pc;
    std::optional<std::string> scope;
    std::vector<std::string> mapPaths;
    std::vector<std::string> positional;
};

// Options that belong to some commands only.
enum CommandOption : unsigned { kDataOption = 1, kPcOption = 2, kScopeOption = 4 };

uint64_t parseNumber(const std::string& text, const char* what)
{
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = isHex ? text.substr(2) : text;
    const char* allowed = isHex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos)
        throw usageError(std::string("not a number for ") + what + ": " + text +
                         " (numbers are decimal, or hexadecimal after 0x)");
    errno = 0;
    const unsigned long long value = std::strtoull(digits.c_str(), nullptr, isHex ? 16 : 10);
    if (errno == ERANGE)
        throw usageError(std::string("number too large for ") + what + ": " + text);
    return value;
}

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
            host_.emplace(options.plugin.value_or(Host::defaultModulePath()));
            factory_ = host_->parserFactory();
        } catch (const PluginError& e) {
            throw Failure{kNoModule, "no-module", e.what(), std::nullopt};
        }
        if (auto refused = refuseSpecialFile(file))
            throw *refused;
        try {
            parser_ = factory_->createObjectfileParser(file);
        } catch (const tarn::CoreException& e) {
            throw explainUnparsed(file, moduleStatus(e));
        } catch (const std::exception& e) {
            throw Failure{kUnreadable, "failed", file + " could not be read: " + e.what(), std::nullopt};
        }
        report_.emplace(parser_, file, paths_);
        return *report_;
    }

    bool reportLoaded() const { return report_.has_value(); }

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

/// A command: its name, its arguments after FILE (least, most) with their synopsis, the
/// command-specific options it takes, its help, and what it does.
struct Command {
    const char* name;
    const char* synopsis;
    size_t least, most;
    unsigned options;
    const char* help;
    Answer (*run)(Invocation&);
};

const Command kCommands[] = {
    {"summary", "FILE", 0, 0, 0,
     "counts of segments, sources, code areas, modules,\nfunctions and global symbols (the default command)",
     [](Invocation& in) { return in.report().summary(); }},
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
    {"scope", "FILE PC", 1, 1, 0, "the innermost scope at PC and its variables",
     [](Invocation& in) {
         in.request.pc = parseNumber(in.args[0], "PC");
         return in.report().scope(in.request.pc);
     }},
    {"symbols", "FILE [--pc ADDR]", 0, 0, kPcOption, "the symbol tree: modules, functions, variables, members",
     [](Invocation& in) {
         in.request.pc = pcOption(in).value_or(kNoPc);
         return in.report().symbols(in.request.pc);
     }},
    {"lookup", "FILE NAME [--pc ADDR | --scope ID]", 1, 1, kPcOption | kScopeOption,
     "a symbol by name: from the scope at ADDR, from the scope\ncontext ID, or globally",
     [](Invocation& in) {
         const std::optional<uint64_t> pc = pcOption(in);
         std::optional<uint64_t> scope;
         if (in.options.scope)
             scope = parseNumber(*in.options.scope, "--scope");
         in.request.pc = pc.value_or(kNoPc);
         in.request.subject = in.args[0];
         return in.report().lookup(in.args[0], pc, scope);
     }},
    {"context", "FILE ID", 1, 1, 0, "the symbol context of an ID",
     [](Invocation& in) {
         const uint64_t id = parseNumber(in.args[0], "ID");
         in.request.subject = std::to_string(id);
         return in.report().context(id);
     }},
    {"compiler", "FILE", 0, 0, 0, "machine, producer and base types",
     [](Invocation& in) { return in.report().compiler(); }},
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
                       "Loads the UBROF parser module the way a debugger does and prints what it answers about FILE.\n\n"
                       "Commands:\n";
    constexpr size_t kHelpColumn = 36;
    for (const Command& command : kCommands) {
        std::string line = std::string("  ") + command.name + " " + command.synopsis;
        line += line.size() + 2 <= kHelpColumn ? std::string(kHelpColumn - line.size(), ' ')
                                               : "\n" + std::string(kHelpColumn, ' ');
        for (const char* c = command.help; *c; ++c)
            line += *c == '\n' ? "\n" + std::string(kHelpColumn, ' ') : std::string(1, *c);
        text += line + "\n";
    }
    text += R"(
FILE may also come before COMMAND.

Options:
  --json                one JSON document on standard output, errors included
  --map-path FROM=TO    show source paths that begin with FROM as beginning with TO, with TO's
                        path separator after it (repeatable)
  --plugin PATH         the module file or module directory to load
  --help, --version

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
        else if (name == "--help" || name == "-h")
            flag(options.help);
        else if (name == "--version")
            flag(options.version);
        else if (name == "--plugin")
            options.plugin = value();
        else if (name == "--pc")
            options.pc = value();
        else if (name == "--scope")
            options.scope = value();
        else if (name == "--map-path")
            options.mapPaths.push_back(value());
        else
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
    if (options.scope && !allowed(kScopeOption))
        throw usageError(std::string("--scope does not belong to ") + command.name + "; it belongs to lookup");
    if (options.scope && options.pc)
        throw usageError("lookup takes --pc or --scope, not both");
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
    Answer answer;
    try {
        answer = command.run(invocation);
    } catch (const tarn::CoreException& e) {
        // The module refused a call; what was asked is the user's to change.
        throw usageError(std::string("the module refused the request: ") + e.what(), moduleStatus(e));
    }
    if (options.json) {
        printJson(std::cout, answerDocument(answer.key, std::move(answer.value)));
    } else {
        if (invocation.reportLoaded())
            invocation.request.widths = invocation.report().addressWidths();
        printText(std::cout, answer, invocation.request);
    }
    return kOk;
}

} // namespace
} // namespace ubrofdump

int main(int argc, char** argv)
{
    using namespace ubrofdump;
    const bool json = wantsJson(argc, argv);
    try {
        return run(argc, argv);
    } catch (const Failure& failure) {
        printFailure(failure, json);
        return failure.exitStatus;
    } catch (const std::exception& e) {
        printFailure(Failure{kUnreadable, "failed", e.what(), std::nullopt}, json);
        return kUnreadable;
    }
}
