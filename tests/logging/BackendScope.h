#pragma once

#include "kiv/logging/LogBackend.h"

namespace kiv::logging {

// The backend is registered while this lives.
struct BackendScope {
    explicit BackendScope(bool storeMessages) { LogBackend::registerBackend(storeMessages); }
    BackendScope(const BackendScope&) = delete;
    BackendScope& operator=(const BackendScope&) = delete;
    ~BackendScope() { LogBackend::unregisterBackend(); }
};

} // namespace kiv::logging
