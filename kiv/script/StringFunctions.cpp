#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addStringFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
