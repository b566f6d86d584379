// The parser the host asks for: reads a whole UBROF file in its constructor and hands out views of it.
#pragma once

#include "host/IObjectfileParser.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace ubrof {

class TarnUbrofParser;

/// How a host wants its files read.
struct UbrofParseOptions {
    /// Read format versions 10 and 11 too; a failure then also says what went wrong and where.
    bool readNewerVersions = false;
};

class UbrofParser : public tarn::IObjectfileParser {
public:
    /// Throws tarn::CoreException, and no other exception, when the file cannot be checked or parsed.
    explicit UbrofParser(const std::string& path);
    UbrofParser(const std::string& path, const UbrofParseOptions& options);
    UbrofParser(const UbrofParser&) = default;
    UbrofParser& operator=(const UbrofParser&) = default;
    ~UbrofParser() override = default;

    void loadSymbolicInfo(bool) override {}
    // The views are made in info/, their own layer: nothing here includes a layer above.
    boost::shared_ptr<tarn::ISourceInformation> createSourceInformation() const override;
    boost::shared_ptr<tarn::IBinaryInformation> createBinaryInformation() const override;
    boost::shared_ptr<tarn::ISymbolInformation> createSymbolInformation() const override;
    boost::shared_ptr<tarn::ICompilerInformation> createCompilerInformation() const override;
    void initialize() override {}

    static std::string getObjectFileFormat();

    /// The store, for the module's own tests and tools.
    const boost::shared_ptr<TarnUbrofParser>& getStore() const { return store; }

private:
    boost::shared_ptr<TarnUbrofParser> store;
};

} // namespace ubrof
