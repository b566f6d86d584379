// The UBROF parser factory: asks the host's preferences, at every parse, how its files are to be read.
#pragma once

#include "parser/UbrofParser.h"
#include "plugin/ObjectfileParserFactoryImpl.h"

#include <cctype>
#include <functional>
#include <string>

namespace ubrof {

/// The platform preference through which a host lets the module read format versions 10 and 11:
/// "true" (or "yes", "on", "1", in any case) to read them; anything else, or nothing, keeps them refused.
inline constexpr const char* kReadNewerVersionsPreference = "com.quarnel.tarndbg.ubrof.readNewerVersions";

class UbrofParserFactory : public tarn::ObjectfileParserFactoryImpl<UbrofParser> {
public:
    /// Answers the platform preference of a key; the empty string when it is not set.
    using PreferenceReader = std::function<std::string(const std::string& key)>;

    explicit UbrofParserFactory(PreferenceReader preferences) : preferences_(std::move(preferences)) {}

    /// The preference is read at each parse, so that a host may change it while the bundle runs.
    boost::shared_ptr<tarn::IObjectfileParser> createObjectfileParser(const std::string& path) override
    {
        UbrofParseOptions options;
        options.readNewerVersions = preferences_ && isSet(preferences_(kReadNewerVersionsPreference));
        return boost::shared_ptr<tarn::IObjectfileParser>(new UbrofParser(path, options));
    }

private:
    // The platform's configurations read these four as true, whatever their case.
    static bool isSet(std::string value)
    {
        for (char& c : value)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return value == "true" || value == "yes" || value == "on" || value == "1";
    }

    PreferenceReader preferences_;
};

} // namespace ubrof
