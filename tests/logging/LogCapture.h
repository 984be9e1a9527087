#pragma once

#include "kiv/core/Clock.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/platform/Console.h"
#include <string>
#include <utility>
#include <vector>

namespace kiv::logging {

// Collects what would go to standard output; one element a write.
class OutputCapture : public kiv::internal::OutputSink {
public:
    OutputCapture() : m_previous(kiv::internal::setStandardOutputSink(this)) {}
    ~OutputCapture() override { kiv::internal::setStandardOutputSink(m_previous); }

    bool write(std::string_view text) override {
        writes.emplace_back(text);
        return true;
    }
    // Everything written since the last call.
    std::string take() {
        std::string all;
        for (const std::string& text : std::exchange(writes, {})) all += text;
        return all;
    }

    std::vector<std::string> writes;

private:
    kiv::internal::OutputSink* m_previous;
};

struct BackendScope {
    explicit BackendScope(bool storeMessages) { LogBackend::registerBackend(storeMessages); }
    ~BackendScope() { LogBackend::unregisterBackend(); }
};

} // namespace kiv::logging
