#include "Silence.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/platform/StandardInput.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

// Standard input of the given bytes, in pieces of the given size.
class Input : public kiv::internal::InputSource {
public:
    Input(std::string_view bytes, size_t piece) : m_left(bytes), m_piece(piece) {
        kiv::internal::setStandardInputSource(this);
    }
    ~Input() override { kiv::internal::setStandardInputSource(nullptr); }

    size_t read(char* to, size_t size) override {
        const size_t count = m_left.copy(to, std::min(size, m_piece));
        m_left.remove_prefix(count);
        return count;
    }

private:
    std::string_view m_left;
    const size_t m_piece;
};

std::string packetsOf(std::string_view bytes, size_t piece) {
    const Input input(bytes, piece);
    const auto reader = kiv::makeObject<kiv::StdInPacketReader>();
    std::string texts;
    while (const auto packet = reader->read()) packet->appendBase16To(texts);
    if (reader->valid() || reader->read()) std::abort();
    return texts;
}

} // namespace

// However the bytes arrive, the packets among them are the same.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    if (packetsOf(bytes, size) != packetsOf(bytes, 1 + data[0] % 32)) std::abort();
    return 0;
}
