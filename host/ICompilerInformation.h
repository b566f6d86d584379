// What the host knows of the compiler that produced an object file.
#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>

namespace tarn {

struct BaseTypeInfo {
    int32_t id = 0;
    std::string name;
    uint32_t size = 0;
    uint32_t bits = 0;
    bool isSigned = false;
    uint32_t byteOrder = 0; ///< 0 not stated, 1 little-endian, 2 big-endian
};

/// Type widths and flags of a compiler, as fixed words.
struct CompilerInfo {
    std::array<int32_t, 14> words{0, 8, 16, 32, 32, 64, 1, 4, 128, 32, 32, 32, 64, 128};
    std::array<uint8_t, 3> flags{0, 0, 0};
    int32_t last = 15;
};

class ICompilerInformation {
public:
    virtual ~ICompilerInformation() = default;
    virtual std::string getMachine() const = 0;
    virtual bool isBigEndian() const = 0;
    virtual std::string getProducer() const = 0;
    virtual std::map<int32_t, BaseTypeInfo> getBaseTypes() const = 0;
    virtual boost::shared_ptr<CompilerInfo> createCompilerInfo() = 0;
};

} // namespace tarn
