// UbrofParser: a parser exists only with a fully parsed store.
#include "parser/UbrofParser.h"

#include "host/CoreException.h"
#include "parser/TarnUbrofParser.h"
#include "parser/Vocabulary.h"

#include <boost/make_shared.hpp>

namespace ubrof {

UbrofParser::UbrofParser(const std::string& path) : UbrofParser(path, UbrofParseOptions{}) {}

UbrofParser::UbrofParser(const std::string& path, const UbrofParseOptions& options)
try : store(boost::make_shared<TarnUbrofParser>())
{
    using tarn::CoreException;
    using tarn::ErrorCode;
    using tarn::Status;
    if (!store->initialize())
        throw CoreException(boost::make_shared<Status>(ErrorCode::ParserInitFailed,
                                                       "Failed to initialize Nordic Parser"));
    if (store->checkFile(path) != 0)
        throw CoreException(boost::make_shared<Status>(
            ErrorCode::ObjectfileParseFailed,
            "Failed to initialize Nordic Parser. The file %s was not recognized as a Nordic Object file",
            path.c_str()));
    store->readNewerVersions = options.readNewerVersions;
    if (store->parseFile(path) != 0) {
        // A host that opted in to the newer versions also learns why a file was refused.
        if (options.readNewerVersions && !store->parseError.empty())
            throw CoreException(boost::make_shared<Status>(ErrorCode::ObjectfileParseFailed,
                                                           "Failed to parse nordic object file %s: %s.",
                                                           path.c_str(), store->parseError.c_str()));
        throw CoreException(boost::make_shared<Status>(ErrorCode::ObjectfileParseFailed,
                                                       "Failed to parse nordic object file %s.",
                                                       path.c_str()));
    }
} catch (const tarn::CoreException&) {
    throw;
} catch (const std::exception& e) {
    // The host catches CoreException only: whatever else stops a parse (memory exhausted, a
    // table at its limit) leaves as one, with the file and the cause.
    throw tarn::CoreException(boost::make_shared<tarn::Status>(
        tarn::ErrorCode::ObjectfileParseFailed, "Failed to parse nordic object file %s: %s.", path.c_str(),
        e.what()));
} catch (...) {
    throw tarn::CoreException(boost::make_shared<tarn::Status>(
        tarn::ErrorCode::ObjectfileParseFailed, "Failed to parse nordic object file %s: unknown failure.",
        path.c_str()));
}

std::string UbrofParser::getObjectFileFormat()
{
    return ObjectFileFormats::Ubrof;
}

} // namespace ubrof
