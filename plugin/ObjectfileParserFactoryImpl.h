// The parser factory that a format's bundle registers: names itself after the parser's format.
#pragma once

#include "host/IQnClassFactory.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace tarn {

template <typename T>
class ObjectfileParserFactoryImpl : public IObjectfileParserFactory {
public:
    /// The category that every object-file parser factory shares.
    static constexpr const char* CATEGORY = "ObjectfileParserFactory";
    /// The service name of a factory is this prefix followed by its format.
    static constexpr const char* CLASS_NAME_PREFIX = "com.quarnel.tarndbg.ObjectfileParserFactory.";

    std::string getCategoryName() const override { return CATEGORY; }
    std::string getClassName() const override { return CLASS_NAME_PREFIX + getObjectFileFormat(); }
    std::string getObjectFileFormat() const override { return T::getObjectFileFormat(); }

    boost::shared_ptr<IObjectfileParser> createObjectfileParser(const std::string& path) override
    {
        return boost::shared_ptr<IObjectfileParser>(new T(path));
    }
};

} // namespace tarn
