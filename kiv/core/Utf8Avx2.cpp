#include "kiv/core/Utf8Simd.h"
#include "kiv/core/VectorAvx2.h"

namespace kiv::internal {

constinit const Utf8Kernels utf8Avx2 = utf8Simd<Avx2Vector>;

} // namespace kiv::internal
