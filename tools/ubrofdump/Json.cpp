// Json: the document shapes and enumeration names every ubrofdump command shares.
#include "tools/ubrofdump/Json.h"

#include "host/ILocation.h"
#include "host/ISymbolContext.h"

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>

namespace ubrofdump {
namespace {

namespace json = boost::json;

template <size_t N>
const char* nameOf(const char* const (&names)[N], int64_t value)
{
    return value >= 0 && static_cast<uint64_t>(value) < N && names[value] ? names[value] : "?";
}

} // namespace

void printJsonAt(std::ostream& out, const json::value& value, int indent)
{
    const std::string inner(indent + 2, ' ');
    if (value.is_object()) {
        const json::object& object = value.get_object();
        if (object.empty()) {
            out << "{}";
            return;
        }
        out << "{\n";
        size_t i = 0;
        for (const auto& entry : object) {
            out << inner << json::serialize(json::value(entry.key())) << ": ";
            printJsonAt(out, entry.value(), indent + 2);
            out << (++i < object.size() ? ",\n" : "\n");
        }
        out << std::string(indent, ' ') << "}";
    } else if (value.is_array()) {
        const json::array& array = value.get_array();
        bool plain = true;
        for (const auto& element : array)
            plain = plain && !element.is_object() && !element.is_array();
        if (plain) {
            out << "[";
            for (size_t i = 0; i < array.size(); ++i)
                out << (i ? ", " : "") << json::serialize(array[i]);
            out << "]";
            return;
        }
        out << "[\n";
        for (size_t i = 0; i < array.size(); ++i) {
            out << inner;
            printJsonAt(out, array[i], indent + 2);
            out << (i + 1 < array.size() ? ",\n" : "\n");
        }
        out << std::string(indent, ' ') << "]";
    } else {
        out << json::serialize(value);
    }
}

ModuleStatus moduleStatus(const tarn::IStatus& status)
{
    return ModuleStatus{static_cast<uint64_t>(status.getErrorCode()), status.getMessage()};
}

ModuleStatus moduleStatus(const tarn::CoreException& exception)
{
    if (const auto& status = exception.getStatus())
        return moduleStatus(*status);
    return ModuleStatus{0, exception.what()};
}

Failure notFound(std::string message, std::optional<ModuleStatus> module)
{
    return Failure{kNotFound, "not-found", std::move(message), std::move(module)};
}

Failure usageError(std::string message, std::optional<ModuleStatus> module)
{
    return Failure{kUsage, "usage", std::move(message), std::move(module)};
}

json::object answerDocument(const std::string& key, json::value value)
{
    json::object document{{"Schema", kSchema}};
    document[key] = std::move(value);
    return document;
}

Failure refusedRequest(const tarn::CoreException& exception)
{
    return usageError(std::string("the module refused the request: ") + exception.what(), moduleStatus(exception));
}

Failure unexpectedFailure(const std::exception& exception)
{
    return Failure{kUnreadable, "failed", exception.what(), std::nullopt};
}

json::object errorObject(const Failure& failure)
{
    json::object error{{"Code", failure.code}, {"Message", failure.message}};
    if (failure.module)
        error["Module"] = json::object{{"Code", failure.module->code}, {"Message", failure.module->message}};
    return error;
}

json::object errorDocument(const Failure& failure)
{
    return answerDocument("Error", errorObject(failure));
}

void printJson(std::ostream& out, const json::value& value)
{
    printJsonAt(out, value, 0);
    out << "\n";
}

// The names follow the host's enumerators (tarn::ISymbolContext, tarn::ILocation).
const char* symbolClassName(int64_t value)
{
    using SC = tarn::ISymbolContext;
    static_assert(SC::OtherSymbol == 0 && SC::TypeSymbol == 4);
    static const char* const kNames[] = {"other", "label", "data", "code", "type"};
    return nameOf(kNames, value);
}

const char* storageClassName(int64_t value)
{
    static_assert(tarn::ISymbolContext::MemberStorage == 3);
    static const char* const kNames[] = {"none", "auto", "static", "member"};
    return nameOf(kNames, value);
}

const char* typeClassName(int64_t value)
{
    static_assert(tarn::ISymbolContext::FunctionType == 8);
    static const char* const kNames[] = {"none",  "unsigned",  "signed",    "float",   "pointer",
                                         "array", "composite", "memberptr", "function"};
    return nameOf(kNames, value);
}

const char* addressingModeName(int64_t value)
{
    using L = tarn::ILocation;
    static_assert(L::Computed == 9 && L::Unknown == 10 && L::RegisterPieces == 11);
    // 4 to 8 are not the host's.
    static const char* const kNames[] = {"value",   "memory",   "register", "frame",     nullptr,    nullptr,
                                         nullptr,   nullptr,    nullptr,    "computed",  "unknown",  "registers"};
    return nameOf(kNames, value);
}

const char* byteOrderName(int64_t value)
{
    static const char* const kNames[] = {"unstated", "little", "big"};
    return nameOf(kNames, value);
}

} // namespace ubrofdump
