#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void installGuards(SQVM*) {}

} // namespace kivSq::internal
