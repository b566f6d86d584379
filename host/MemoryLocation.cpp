// MemoryLocation: an immutable location value.
#include "host/ILocation.h"

namespace tarn {

MemoryLocation::MemoryLocation(boost::shared_ptr<IStackTraceContext> frame, AddressingMode mode,
                               std::vector<MemoryPiece> pieces)
    : frame_(std::move(frame)), mode_(mode), pieces_(std::move(pieces))
{
}

} // namespace tarn
