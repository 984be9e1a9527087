#include "kiv/core/CodecsSimd.h"
#include "kiv/core/VectorAvx2.h"

namespace kiv::internal {

constinit const CodecKernels codecsAvx2 = codecsSimd<Avx2Vector, codecsSse4>;

} // namespace kiv::internal
