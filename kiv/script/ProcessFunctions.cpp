#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addProcessFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
