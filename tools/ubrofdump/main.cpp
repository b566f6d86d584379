// ubrofdump: a command-line host that loads the UBROF parser bundle and prints what its views answer.
#include "host/CoreException.h"
#include "host/FileMapper.h"
#include "tools/ubrofdump/Host.h"
#include "tools/ubrofdump/Report.h"
#include "tools/ubrofdump/Text.h"

#include <boost/json/object.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ubrofdump {
namespace {

// Exit statuses.
constexpr int kOk = 0, kUnreadable = 1, kUsage = 2, kNotFound = 3, kNoPlugin = 4;

const char* const kUsageText = R"(usage: ubrofdump [OPTIONS] [COMMAND] FILE [ARGUMENTS]

Loads the UBROF parser module the way a debugger does and prints what it answers about FILE.

Commands:
  summary FILE                      counts of segments, sources, code areas, modules,
                                    functions and global symbols (the default command)
  segments FILE [--data]            program segments, with their bytes on --data
  sources FILE                      source files
  lines FILE [START [END]]          code areas of an address range (all by default)
  line2addr FILE SOURCE LINE        the address of a source line
  scope FILE PC                     the innermost scope at PC and its variables
  symbols FILE [--pc ADDR]          the symbol tree: modules, functions, variables, members
  lookup FILE NAME [--pc ADDR | --scope ID]
                                    a symbol by name: from the scope at ADDR, from the scope
                                    context ID, or globally
  context FILE ID                   the symbol context of an ID
  compiler FILE                     machine, producer and base types

FILE may also come before COMMAND.

Options:
  --json                one JSON document on standard output
  --map-path FROM=TO    show source paths that begin with FROM as beginning with TO (repeatable)
  --plugin PATH         the module file or module directory to load
  --help, --version

Numbers are decimal or hexadecimal with 0x. Exit status: 0 success; 1 FILE cannot be opened or
parsed; 2 usage error; 3 nothing found; 4 the module cannot be loaded.
)";

struct UsageError {
    std::string message;
};

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
                throw UsageError{name + " needs a value"};
            return argv[++i];
        };
        auto flag = [&](bool& target) {
            if (equals != std::string::npos)
                throw UsageError{name + " takes no value"};
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
            throw UsageError{"unknown option " + name};
    }
    return options;
}

uint64_t parseNumber(const std::string& text, const char* what)
{
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = isHex ? text.substr(2) : text;
    const char* allowed = isHex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos ||
        digits.size() > (isHex ? 16u : 20u))
        throw UsageError{std::string("not a number for ") + what + ": " + text};
    errno = 0;
    const unsigned long long value = std::strtoull(digits.c_str(), nullptr, isHex ? 16 : 10);
    if (errno == ERANGE)
        throw UsageError{std::string("number too large for ") + what + ": " + text};
    return value;
}

std::string hex(uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08llx", static_cast<unsigned long long>(value));
    return text;
}

// Positional arguments after FILE, by command: least, most.
const std::map<std::string, std::pair<size_t, size_t>> kCommands = {
    {"summary", {0, 0}}, {"segments", {0, 0}},  {"sources", {0, 0}}, {"lines", {0, 2}},
    {"line2addr", {2, 2}}, {"scope", {1, 1}},   {"symbols", {0, 0}}, {"lookup", {1, 1}},
    {"context", {1, 1}}, {"compiler", {0, 0}}};

int run(int argc, char** argv)
{
    Options options = parseOptions(argc, argv);
    if (options.help) {
        std::cout << kUsageText;
        return kOk;
    }
    if (options.version) {
        std::cout << "ubrofdump " << UBROF_VERSION << "\n";
        return kOk;
    }

    std::string command = "summary";
    auto& positional = options.positional;
    if (!positional.empty() && kCommands.count(positional.front())) {
        command = positional.front();
        positional.erase(positional.begin());
    } else if (positional.size() > 1 && kCommands.count(positional[1])) {
        // FILE COMMAND reads as naturally as COMMAND FILE.
        command = positional[1];
        positional.erase(positional.begin() + 1);
    }
    if (options.positional.empty())
        throw UsageError{"no FILE given"};
    const std::string file = options.positional.front();
    const std::vector<std::string> args(options.positional.begin() + 1, options.positional.end());
    const auto [least, most] = kCommands.at(command);
    if (args.size() < least || args.size() > most)
        throw UsageError{"wrong number of arguments for " + command};
    if (options.data && command != "segments")
        throw UsageError{"--data belongs to segments"};
    if (options.pc && command != "symbols" && command != "lookup")
        throw UsageError{"--pc belongs to symbols and lookup"};
    if (options.scope && (command != "lookup" || options.pc))
        throw UsageError{"--scope belongs to lookup, without --pc"};

    TextRequest request;
    request.withData = options.data;
    if (options.pc)
        request.pc = parseNumber(*options.pc, "--pc");
    if (options.scope)
        parseNumber(*options.scope, "--scope");
    if (command == "lines") {
        request.start = args.size() > 0 ? parseNumber(args[0], "START") : 0;
        request.end = args.size() > 1 ? parseNumber(args[1], "END") : 0xFFFFFFFF;
    }
    uint32_t line = 0;
    if (command == "line2addr") {
        const uint64_t parsed = parseNumber(args[1], "LINE");
        if (parsed > 0xFFFFFFFF)
            throw UsageError{"LINE out of range: " + args[1]};
        line = static_cast<uint32_t>(parsed);
    }
    if (command == "scope")
        request.pc = parseNumber(args[0], "PC");
    if (command == "context")
        parseNumber(args[0], "ID");
    if (command == "lookup" || command == "context")
        request.subject = args[0];

    for (const std::string& mapping : options.mapPaths) {
        const size_t equals = mapping.find('=');
        if (equals == std::string::npos || equals == 0)
            throw UsageError{"--map-path wants FROM=TO, not " + mapping};
        tarn::FileMapper::addSubstitution(mapping.substr(0, equals), mapping.substr(equals + 1));
    }

    // The host outlives everything made by the module's code, so the module stays loaded for it.
    std::optional<Host> host;
    boost::shared_ptr<tarn::IObjectfileParserFactory> factory;
    try {
        host.emplace(options.plugin.value_or(Host::defaultModulePath()));
        factory = host->parserFactory();
    } catch (const PluginError& e) {
        std::cerr << "ubrofdump: " << e.what() << "\n";
        return kNoPlugin;
    }

    Answer answer;
    {
        boost::shared_ptr<tarn::IObjectfileParser> parser;
        try {
            parser = factory->createObjectfileParser(file);
        } catch (const tarn::CoreException& e) {
            std::fprintf(stderr, "ubrofdump: error 0x%x: %s\n", static_cast<unsigned>(e.getErrorCode()), e.what());
            return kUnreadable;
        }
        const Report report(parser, file);
        try {
            if (command == "summary")
                answer = report.summary();
            else if (command == "segments")
                answer = report.segments(options.data);
            else if (command == "sources")
                answer = report.sources();
            else if (command == "lines")
                answer = report.lines(request.start, request.end);
            else if (command == "line2addr")
                answer = report.lineToAddress(args[0], line);
            else if (command == "scope")
                answer = report.scope(request.pc);
            else if (command == "symbols")
                answer = report.symbols(request.pc);
            else if (command == "lookup")
                answer = report.lookup(args[0], options.pc ? std::optional(request.pc) : std::nullopt, options.scope);
            else if (command == "context")
                answer = report.context(args[0]);
            else
                answer = report.compiler();
        } catch (const tarn::CoreException& e) {
            std::fprintf(stderr, "ubrofdump: error 0x%x: %s\n", static_cast<unsigned>(e.getErrorCode()), e.what());
            return kUsage;
        } catch (const MissingView& e) {
            std::cerr << "ubrofdump: " << e.what() << "\n";
            return kUnreadable;
        }
    }

    const bool found = !answer.status && !answer.value.is_null();
    if (options.json) {
        boost::json::object document{{"Schema", 1}};
        document[answer.key] = answer.value;
        if (answer.status)
            document["Status"] = *answer.status;
        printJson(std::cout, document);
    } else if (found) {
        printText(std::cout, answer, request);
    } else if (answer.status) {
        std::fprintf(stderr, "ubrofdump: status 0x%llx: %s\n",
                     static_cast<unsigned long long>(answer.status->at("Code").as_uint64()),
                     std::string(answer.status->at("Message").as_string()).c_str());
    } else if (command == "scope") {
        std::cerr << "ubrofdump: no scope holds " << hex(request.pc) << "\n";
    } else if (command == "lookup") {
        std::cerr << "ubrofdump: no symbol " << args[0] << " found\n";
    } else {
        std::cerr << "ubrofdump: no context " << args[0] << " in " << file << "\n";
    }
    return found ? kOk : kNotFound;
}

} // namespace
} // namespace ubrofdump

int main(int argc, char** argv)
{
    try {
        return ubrofdump::run(argc, argv);
    } catch (const ubrofdump::UsageError& e) {
        std::cerr << "ubrofdump: " << e.message << "\nTry 'ubrofdump --help'.\n";
        return 2;
    } catch (const std::exception& e) {
        // Reading a file can fail below the parser too (an embedded source that cannot be written).
        std::cerr << "ubrofdump: " << e.what() << "\n";
        return 1;
    }
}
