// A debugged process as the host's contexts see it.
#pragma once

#include <string>

namespace tarn {

class IProcessContext {
public:
    virtual ~IProcessContext() = default;
    virtual std::string getProcessId() const = 0;
};

} // namespace tarn
