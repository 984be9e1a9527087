#include "kiv/core/TimedReferences.h"
#include "kiv/logging/MessageStream.h"

namespace kiv::internal {

void warnOfLongDrain() {
    logging::MessageStream(2, 2) << "[OBJECT] one drain of a release list has released " << longDrain << " references";
}

} // namespace kiv::internal
