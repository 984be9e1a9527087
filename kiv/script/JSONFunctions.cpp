#include "kiv/script/Libraries.h"

namespace kivSq::internal {

void addJSONFunctions(SQVM*, const Object&) {}

} // namespace kivSq::internal
