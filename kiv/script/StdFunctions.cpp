#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addStdFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
