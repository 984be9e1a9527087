#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addLogFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
