#include "kiv/core/Utf8Simd.h"
#include "kiv/core/VectorSse4.h"

namespace kiv::internal {

constinit const Utf8Kernels utf8Sse4 = utf8Simd<Sse4Vector>;

} // namespace kiv::internal
