#include "kiv/core/String.h"

#include <ostream>
#include <stdexcept>

namespace kiv {

const uint32_t String::noCodePoint;

namespace {

ConstByteSpan spanOf(const char* text, size_t size) {
    if (size > 0xFFFFFFFF) throw std::length_error("kiv::String: too long for a span");
    return {reinterpret_cast<const uint8_t*>(text), static_cast<unsigned>(size)};
}

} // namespace

String::String(const ConstByteSpan& bytes)
    : String(reinterpret_cast<const char*>(bytes.getBytePointer()), bytes.getSize()) {}

ConstByteSpan String::getConstByteSpan() const {
    return spanOf(m_text.data(), m_text.size());
}

ConstByteSpan String::getConstByteSpanWithNullTerminator() const {
    return spanOf(m_text.c_str(), m_text.size() + 1);
}

std::ostream& operator<<(std::ostream& out, const String& text) {
    return out << text.view();
}

} // namespace kiv
