// UbrofCompilerInformation: the base-type table of the host, filled from the type table over fixed defaults.
#include "info/UbrofCompilerInformation.h"

#include "parser/TarnUbrofParser.h"

#include <boost/make_shared.hpp>
#include <sstream>

namespace ubrof {
namespace {

struct BaseTypeRow {
    int32_t id;
    const char* name; ///< the base-type name of the type table; empty for ids no record names
    uint32_t size;
    bool isSigned;
};

// Row order matters: setDefaults fills in this order. The host knows no id 3.
const BaseTypeRow kBaseTypeRows[] = {
    {1, "char", 1, false},
    {2, "unsigned char", 1, false},
    {4, "short", 2, true},
    {5, "unsigned short", 2, false},
    {6, "int", 2, true},
    {7, "unsigned int", 2, false},
    {8, "long", 4, true},
    {9, "unsigned long", 4, false},
    {10, "long long", 8, true},
    {11, "unsigned long long", 8, false},
    {12, "", 4, false},
    {13, "float", 4, false},
    {14, "double", 4, false},
    {15, "bool", 1, false},
    {20, "wchar", 1, false},
    {16, "", 1, false},
    {17, "", 2, false},
    {18, "", 4, false},
    {19, "", 4, false},
};

// Any other base name (long double, the pointer entries) shares id 0.
int32_t baseTypeIdOf(const std::string& name)
{
    for (const BaseTypeRow& row : kBaseTypeRows)
        if (row.name[0] != '\0' && name == row.name)
            return row.id;
    return 0;
}

} // namespace

UbrofCompilerInformation::UbrofCompilerInformation(boost::shared_ptr<TarnUbrofParser> store)
    : store(std::move(store))
{
    setDefaults();
    for (const BaseTypeRecord& record : this->store->typeTable.getBaseTypeRecords()) {
        if (record.name.empty() || record.category == VoidCategory)
            continue;
        const int32_t id = baseTypeIdOf(record.name);
        tarn::BaseTypeInfo& info = baseTypes[id];
        info.id = id;
        info.name = record.name;
        info.size = record.size;
        info.bits = record.size * 8;
        // Floats and pointers count as signed: only the unsigned-integer category is not.
        info.isSigned = record.category != UnsignedIntegerCategory;
        info.byteOrder = isBigEndian() ? 2 : 1;
    }
}

void UbrofCompilerInformation::setDefaults()
{
    for (const BaseTypeRow& row : kBaseTypeRows) {
        auto found = baseTypes.find(row.id);
        if (found != baseTypes.end() && found->second.id != 0)
            continue;
        tarn::BaseTypeInfo info;
        info.id = row.id;
        info.size = row.size;
        info.bits = row.size * 8;
        info.isSigned = row.isSigned;
        info.byteOrder = 0;
        baseTypes[row.id] = info;
    }
}

std::string UbrofCompilerInformation::getMachine() const { return "Nordic"; }

bool UbrofCompilerInformation::isBigEndian() const { return false; }

std::string UbrofCompilerInformation::getProducer() const
{
    std::ostringstream text;
    text << "Nordic  " << store->symbolTable.compilerVersion;
    return text.str();
}

std::map<int32_t, tarn::BaseTypeInfo> UbrofCompilerInformation::getBaseTypes() const { return baseTypes; }

boost::shared_ptr<tarn::CompilerInfo> UbrofCompilerInformation::createCompilerInfo()
{
    if (compilerInfo)
        return compilerInfo;
    compilerInfo = boost::make_shared<tarn::CompilerInfo>();
    auto bits = [this](int32_t id) { return static_cast<int32_t>(baseTypes[id].bits); };
    auto& words = compilerInfo->words;
    words[0] = 5;
    words[1] = bits(1);
    words[2] = bits(4);
    words[3] = bits(6);
    words[10] = bits(6);
    words[4] = bits(8);
    words[5] = bits(10);
    words[8] = bits(10);
    words[11] = bits(13);
    words[12] = bits(14);
    words[6] = -1;
    words[7] = -1;
    words[9] = 32;
    words[13] = 64;
    compilerInfo->last = 15;
    compilerInfo->flags[0] = baseTypes[1].isSigned;
    compilerInfo->flags[1] = isBigEndian();
    return compilerInfo;
}

} // namespace ubrof
