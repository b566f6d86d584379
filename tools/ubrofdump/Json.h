// ubrofdump's JSON conventions, shared by every command: the document shapes, the failure that
// ends a command, the exit statuses, and the names of the numbers that are enumerations.
#pragma once

#include "host/CoreException.h"
#include "host/Status.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace ubrofdump {

/// Raised whenever a document changes shape; scripts check it before reading anything else.
constexpr int kSchema = 3;

/// Exit statuses, the same for the text and the JSON form.
enum ExitStatus : int { kOk = 0, kUnreadable = 1, kUsage = 2, kNotFound = 3, kNoModule = 4 };

/// What the module itself reported: its error code and its own message.
struct ModuleStatus {
    uint64_t code = 0;
    std::string message;
};

ModuleStatus moduleStatus(const tarn::IStatus& status);
ModuleStatus moduleStatus(const tarn::CoreException& exception);

/// Ends a command: the exit status, a short code that scripts can test, a sentence for people,
/// and the module's own report when the module gave one. Thrown by value.
struct Failure {
    int exitStatus = kUnreadable;
    std::string code;
    std::string message;
    std::optional<ModuleStatus> module;
};

/// Nothing matched what was asked: one shape for every command.
Failure notFound(std::string message, std::optional<ModuleStatus> module = std::nullopt);
/// The arguments cannot be used as given.
Failure usageError(std::string message, std::optional<ModuleStatus> module = std::nullopt);

/// The module refused a call: what was asked is the user's to change.
Failure refusedRequest(const tarn::CoreException& exception);
/// Anything else that ends a command before it is done.
Failure unexpectedFailure(const std::exception& exception);

/// {"Schema": 3, key: value}
boost::json::object answerDocument(const std::string& key, boost::json::value value);
/// {"Code": ..., "Message": ..., "Module": {"Code": ..., "Message": ...}}
boost::json::object errorObject(const Failure& failure);
/// {"Schema": 3, "Error": errorObject(failure)}
boost::json::object errorDocument(const Failure& failure);

/// JSON with two-space indentation; arrays of plain values stay on one line.
void printJson(std::ostream& out, const boost::json::value& value);
/// printJson's layout for a value that sits indent blanks deep, without the final newline.
void printJsonAt(std::ostream& out, const boost::json::value& value, int indent);

// Names of the host's enumerations, as both output forms show them ("?" for a number the host
// does not define). A JSON object gives each such number a sibling key ending in "Name".
const char* symbolClassName(int64_t value);
const char* storageClassName(int64_t value);
const char* typeClassName(int64_t value);
const char* addressingModeName(int64_t value);
const char* byteOrderName(int64_t value);

} // namespace ubrofdump
