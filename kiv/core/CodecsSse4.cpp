#include "kiv/core/CodecsSimd.h"
#include "kiv/core/VectorSse4.h"

namespace kiv::internal {

constinit const CodecKernels codecsSse4 = codecsSimd<Sse4Vector, codecsPortable>;

} // namespace kiv::internal
