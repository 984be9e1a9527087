#include "kiv/data/ByteConsumer.h"

namespace kiv {

ByteConsumer::~ByteConsumer() = default;

} // namespace kiv
