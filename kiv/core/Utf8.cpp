#include "kiv/core/Utf8.h"

#include "kiv/core/Utf8Kernels.h"
#include "kiv/core/Utf8Words.h"

#include <algorithm>

namespace kiv::internal {
namespace {

// Small enough to stay in the first-level cache between the scan of a piece and its copy.
constexpr size_t pieceSize = 8192;
// A scan costs more than decoding a few dozen bytes one by one: stay lenient as long as refused bytes come this
// densely.
constexpr size_t calmDistance = 64;

const Utf8Kernels& kernels() {
    return utf8Portable;
}

// Gathers small pieces of text, so that the string behind it grows in few steps.
class Sink {
public:
    explicit Sink(std::string& out) : m_out(out) {}
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    void append(char c) {
        room(1);
        m_buffer[m_used++] = c;
    }
    // Requires: isEncodable(codePoint).
    void append(uint32_t codePoint) {
        room(4);
        m_used += encodeUtf8(codePoint, m_buffer + m_used);
    }
    // Appends the first `count` bytes of `word`.
    void append(uint64_t word, unsigned count) {
        room(sizeof word);
        std::memcpy(m_buffer + m_used, &word, sizeof word);
        m_used += count;
    }
    void flush() {
        m_out.append(m_buffer, m_used);
        m_used = 0;
    }

private:
    void room(size_t count) {
        if (sizeof m_buffer - m_used < count) flush();
    }

    std::string& m_out;
    size_t m_used = 0;
    char m_buffer[1024];
};

// Reads leniently until the text has been calm for a while. False at code point 0.
bool repairStretch(const char*& it, const char* end, Sink& sink) {
    size_t calm = 0;
    while (it != end && calm < calmDistance) {
        if (end - it >= 8) {
            const uint64_t word = loadWord(it);
            if (const unsigned run = cleanAsciiBytes(word)) {
                sink.append(word, run);
                it += run;
                calm += run;
                continue;
            }
        }
        const char* const before = it;
        const uint32_t codePoint = lenientDecode(it, end);
        if (codePoint == 0) return false;
        sink.append(codePoint);
        const bool refused = codePoint >= 0x80 && it - before == 1;
        calm = refused ? 0 : calm + static_cast<size_t>(it - before);
    }
    return true;
}

template <class Unit>
uint32_t takeCodePoint(const Unit*& it, const Unit* end) {
    const auto unit = static_cast<uint32_t>(*it++);
    if constexpr (sizeof(Unit) == 2) {
        const bool leads = unit >= 0xD800 && unit < 0xDC00;
        if (leads && it != end && *it >= 0xDC00 && *it < 0xE000) {
            return 0x10000 + ((unit & 0x3FF) << 10 | (static_cast<uint32_t>(*it++) & 0x3FF));
        }
    }
    return isEncodable(unit) ? unit : replacementCodePoint;
}

template <class Unit>
void encodeUnits(const Unit* units, size_t count, std::string& out) {
    out.clear();
    out.reserve(count);
    Sink sink(out);
    for (const Unit *it = units, *const end = units + count; it != end;) sink.append(takeCodePoint(it, end));
    sink.flush();
}

template <class Unit>
Unit* putCodePoint(uint32_t codePoint, Unit* out) {
    if constexpr (sizeof(Unit) == 2) {
        if (codePoint >= 0x10000) {
            *out++ = static_cast<Unit>(0xD7C0 + (codePoint >> 10));
            codePoint = 0xDC00 | (codePoint & 0x3FF);
        }
    }
    *out++ = static_cast<Unit>(codePoint);
    return out;
}

template <class Text>
void decodeUnits(const char* text, size_t size, Text& out) {
    using Unit = typename Text::value_type;
    const size_t codePoints = countUtf8(text, size);
    // Code points that need two 16-bit units took at least four bytes, so bytes bound units as well.
    out.resize(sizeof(Unit) == 2 ? std::min(size, 2 * codePoints) : codePoints);
    Unit* put = out.data();
    for (const char *it = text, *const end = text + size; it != end;) {
        if (end - it >= 8 && isAsciiWord(loadWord(it))) {
            for (int i = 0; i < 8; ++i) *put++ = static_cast<Unit>(*it++);
        } else {
            put = putCodePoint(lenientDecode(it, end), put);
        }
    }
    out.resize(static_cast<size_t>(put - out.data()));
}

} // namespace

bool validateUtf8(const char* text, size_t size) {
    return kernels().validPrefix(text, size) == size;
}

size_t countUtf8(const char* text, size_t size) {
    size_t count = 0;
    const char* it = text;
    const char* const end = text + size;
    while (it != end) {
        const size_t piece = std::min(pieceSize, static_cast<size_t>(end - it));
        const size_t valid = kernels().validPrefix(it, piece);
        count += kernels().countValid(it, valid);
        it += valid;
        if (valid == piece) continue;
        for (const char* const from = it; it != end && it - from < static_cast<ptrdiff_t>(calmDistance); ++count) {
            lenientDecode(it, end);
        }
    }
    return count;
}

void repairUtf8(const char* text, size_t size, std::string& out) {
    out.clear();
    out.reserve(size);
    Sink sink(out);
    const char* it = text;
    const char* const end = text + size;
    while (it != end) {
        const size_t piece = std::min(pieceSize, static_cast<size_t>(end - it));
        const size_t clean = kernels().cleanPrefix(it, piece);
        out.append(it, clean);
        it += clean;
        if (clean == piece) continue;
        const bool goesOn = repairStretch(it, end, sink);
        sink.flush();
        if (!goesOn) return;
    }
}

void asciiFix(const char* text, size_t size, ControlCodes controlCodes, std::string& out) {
    out.clear();
    out.reserve(size);
    Sink sink(out);
    for (const char *it = text, *const end = text + size; it != end;) {
        const uint32_t codePoint = lenientDecode(it, end);
        if (codePoint == 0) break;
        if (controlCodes == ControlCodes::Remove && (codePoint < 0x20 || codePoint == 0x7F)) continue;
        sink.append(codePoint < 0x80 ? static_cast<char>(codePoint) : '?');
    }
    sink.flush();
}

void unicodeToUtf8(const char16_t* units, size_t count, std::string& out) {
    encodeUnits(units, count, out);
}
void unicodeToUtf8(const char32_t* units, size_t count, std::string& out) {
    encodeUnits(units, count, out);
}
void unicodeToUtf8(const wchar_t* units, size_t count, std::string& out) {
    encodeUnits(units, count, out);
}
void unicodeToUtf8(const uint16_t* units, size_t count, std::string& out) {
    encodeUnits(units, count, out);
}
void unicodeToUtf8(const uint32_t* units, size_t count, std::string& out) {
    encodeUnits(units, count, out);
}

void utf8ToUnicode(const char* text, size_t size, std::u16string& out) {
    decodeUnits(text, size, out);
}
void utf8ToUnicode(const char* text, size_t size, std::u32string& out) {
    decodeUnits(text, size, out);
}
void utf8ToUnicode(const char* text, size_t size, std::wstring& out) {
    decodeUnits(text, size, out);
}

} // namespace kiv::internal
