#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addThreadFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
