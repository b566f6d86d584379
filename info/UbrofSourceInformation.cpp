// UbrofSourceInformation: the store's file, line and code-area queries, with failures put into the host's Status.
#include "info/UbrofSourceInformation.h"

#include "parser/TarnUbrofParser.h"

namespace ubrof {

UbrofSourceInformation::UbrofSourceInformation(boost::shared_ptr<TarnUbrofParser> store)
    : store(std::move(store))
{
}

bool UbrofSourceInformation::getSourcefiles(tarn::Status& status, std::vector<std::string>& files) const
{
    for (uint32_t index = 0;; ++index) {
        std::string name;
        double timestamp = 0;
        uint8_t flags[2] = {0, 0};
        if (store->getFileInfo(index, &name, &timestamp, flags) != StoreOk)
            break;
        if (!name.empty())
            files.push_back(name);
    }
    if (files.empty()) {
        status.setError(tarn::ErrorCode::NoSourceFiles, "No source file found in Ubrofs objectfile.");
        return false;
    }
    return true;
}

bool UbrofSourceInformation::getCodeAreasFromAddressRange(tarn::Status& status, uint64_t start, uint64_t end,
                                                          std::vector<tarn::CodeArea>& areas) const
{
    // The store empties the list, or writes over its entries, reusing their texts.
    return store->getCodeAreasInRange(status, start, end, areas);
}

bool UbrofSourceInformation::getAddressesFromSingleStatement(tarn::Status& status, const std::string& file,
                                                             const tarn::CodeLocation& location,
                                                             std::vector<tarn::AddressNamePair>& addresses) const
{
    addresses.clear();
    uint64_t address = 0;
    const int16_t result = store->findStatementAddress(file, location.line, location.column, &address);
    if (result == StoreOk) {
        tarn::AddressNamePair pair;
        pair.address = address;
        pair.name = store->getScopeNameAtPc(static_cast<uint32_t>(address));
        addresses.push_back(pair);
    }
    if (result == StoreOk && !addresses.empty())
        return true;
    status.setError(tarn::ErrorCode::StatementLookupFailed, "getAddressesFromSingleStatement failed");
    return false;
}

void UbrofSourceInformation::getParentFrames(std::vector<tarn::CallFrameInfo>&, int,
                                             boost::shared_ptr<tarn::IProcessContext>)
{
}

} // namespace ubrof
