// The commands that show the program as it is (addr2line, nm, size, and the summary's account of
// the program), read from the program model rather than through the debugger module. Nothing else
// in ubrofdump reads the model: the debugger commands see the module only as a host does.
#pragma once

#include "tools/ubrofdump/Matching.h"
#include "tools/ubrofdump/Report.h"

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <vector>

namespace ubrof::model {
struct Program;
}

namespace ubrofdump {

/// The options that belong to program commands only, as given: (name, value) in order, the value
/// empty for a flag.
struct ProgramOptions {
    std::vector<std::pair<std::string, std::string>> given;
    bool has(const std::string& name) const;
    /// The value given last for name.
    std::optional<std::string> value(const std::string& name) const;
};

/// Whether name is an option of the program commands, and if so whether it takes a value.
std::optional<bool> programOptionTakesValue(const std::string& name);

/// Throws a usage Failure when an option given belongs to no program command named command.
void checkProgramOptions(const std::string& command, const ProgramOptions& options);

/// For each argument, an address or a function's name (plain or qualified, with an optional
/// +OFFSET): its function, file and line, as llvm-symbolizer's JSON has them.
Answer addr2line(const std::string& file, const std::vector<std::string>& args, const PathMap& paths);

/// Every function and variable with an address: where, how large, of what kind, named how.
/// args holds at most a name pattern (a glob). widths learns how wide each memory's addresses are.
Answer nm(const std::string& file, const std::vector<std::string>& args, const ProgramOptions& options,
          AddressWidths& widths);

/// Bytes per memory, module and function, largest first.
Answer size(const std::string& file, const ProgramOptions& options, AddressWidths& widths);

/// What the summary adds about the program: the format version, creation date, processor,
/// memories and modules. From a light build, released before this returns, so that the module's
/// own parse never finds it still in memory.
boost::json::object programSummary(const std::string& file);

/// Where the program places a qualified name (Class::method, Class::member, function::static),
/// for finding the module's context of it; a not-found Failure when the program holds no such
/// function or variable. The model is released before this returns.
std::vector<PlacedName> placeQualified(const std::string& file, const std::string& qualified);

/// The program model of file, light or whole; a Failure that says why it cannot be built.
ubrof::model::Program loadModel(const std::string& file, bool light);

/// A name the module cannot know as written: one with a scope ("::") in it.
bool isQualified(const std::string& name);

} // namespace ubrofdump
