#include "kiv/platform/StandardInput.h"

#include "kiv/platform/StandardStreams.h"
#include <utility>

namespace kiv::internal {
namespace {

InputSource* g_source;

} // namespace

InputSource::~InputSource() = default;

size_t readStandardInput(char* to, size_t size) {
    return g_source ? g_source->read(to, size) : readFromStandardInput(to, size);
}

bool InputWait::wait() {
    if (m_isCancelled) return false;
    return g_source || waitForSystem();
}

void InputWait::cancel() {
    m_isCancelled = true;
    m_waker.wake();
}

InputSource* setStandardInputSource(InputSource* source) {
    return std::exchange(g_source, source);
}

} // namespace kiv::internal
