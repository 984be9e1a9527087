#include "kiv/core/Utf8.h"

#include "kiv/core/Simd.h"
#include "kiv/core/Utf8Kernels.h"
#include "kiv/core/Utf8Words.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace kiv::internal {
namespace {

// Small enough to stay in the first-level cache between the scan of a piece and its copy.
constexpr size_t pieceSize = 8192;
// Restarting a scan costs as much as reading some dozen bytes one by one: the reader stays with the latter until so
// many bytes in a row were fine.
constexpr size_t calmDistance = 32;
constexpr size_t toTheEnd = SIZE_MAX;

const Utf8Kernels& kernels() {
    static constexpr KernelTables<Utf8Kernels> tables = {&utf8Portable, &utf8Sse4, &utf8Avx2};
    return activeKernels<Utf8Kernels>(tables);
}

// Reads text leniently into a sink, until `calm` bytes in a row held no refused one or the end is reached; false when
// it met a code point 0 and the sink wants to stop there. A sink takes runs of one to eight bytes of ASCII without
// zero, of which eight can be read; refused bytes; and all other code points.
template <class Sink>
bool readLeniently(const char*& it, const char* end, size_t calm, Sink& sink) {
    for (size_t quiet = 0; it != end && quiet < calm;) {
        if (end - it >= 8) {
            const unsigned run = cleanAsciiBytes(loadWord(it));
            sink.ascii(it, run);
            it += run;
            quiet += run;
            if (run == 8) continue;
        }
        const char* const before = it;
        const uint32_t codePoint = strictDecode(it, end);
        if (codePoint == noCodePoint) {
            sink.refused(static_cast<uint8_t>(*it++));
            quiet = 0;
            continue;
        }
        if (codePoint == 0 && Sink::stopsAtZero) return false;
        sink.codePoint(codePoint);
        quiet += static_cast<size_t>(it - before);
    }
    return true;
}

// Gathers what is read in a block, so that the string behind it grows in few steps.
template <class Text>
class BlockSink {
public:
    explicit BlockSink(Text& out) : m_out(out) {}
    BlockSink(const BlockSink&) = delete;
    BlockSink& operator=(const BlockSink&) = delete;

    void flush() {
        m_out.append(m_block, m_used);
        m_used = 0;
    }

protected:
    using Unit = typename Text::value_type;

    // Where the next `count` units go; the caller adds those it keeps to m_used.
    Unit* room(size_t count) {
        if (std::size(m_block) - m_used < count) flush();
        return m_block + m_used;
    }

    size_t m_used = 0;

private:
    Text& m_out;
    Unit m_block[1024];
};

// The UTF-8 forms of the bytes 0x80 to 0xFF read as Windows-1252: up to three bytes, and their number in the fourth.
constexpr std::array<std::array<char, 4>, 128> windows1252Forms = [] {
    std::array<std::array<char, 4>, 128> forms{};
    for (unsigned i = 0; i < forms.size(); ++i) {
        const unsigned length = encodeUtf8(windows1252CodePoint(static_cast<uint8_t>(0x80 + i)), forms[i].data());
        forms[i][3] = static_cast<char>(length);
    }
    return forms;
}();

class Utf8Sink : public BlockSink<std::string> {
public:
    static constexpr bool stopsAtZero = true;
    using BlockSink::BlockSink;

    void ascii(const char* run, unsigned count) {
        std::memcpy(room(8), run, 8);
        m_used += count;
    }
    void refused(uint8_t byte) {
        const auto& form = windows1252Forms[byte - 0x80u];
        std::memcpy(room(4), form.data(), 4);
        m_used += static_cast<size_t>(form[3]);
    }
    void codePoint(uint32_t value) { m_used += encodeUtf8(value, room(4)); }
};

class AsciiSink : public BlockSink<std::string> {
public:
    static constexpr bool stopsAtZero = true;
    AsciiSink(std::string& out, ControlCodes controlCodes)
        : BlockSink(out), m_removes(controlCodes == ControlCodes::Remove) {}

    void ascii(const char* run, unsigned count) {
        char* const to = room(8);
        if (m_removes) {
            m_used += static_cast<size_t>(std::remove_copy_if(run, run + count, to, isControlCode) - to);
        } else {
            std::memcpy(to, run, 8);
            m_used += count;
        }
    }
    void refused(uint8_t) { put('?'); }
    void codePoint(uint32_t value) {
        if (value >= 0x80) {
            put('?');
        } else if (!m_removes || !isControlCode(static_cast<char>(value))) {
            put(static_cast<char>(value));
        }
    }

private:
    static bool isControlCode(char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }
    void put(char c) {
        *room(1) = c;
        ++m_used;
    }

    bool m_removes;
};

// UTF-16 or UTF-32, by the size of the unit.
template <class Text>
class UnicodeSink : public BlockSink<Text> {
    using typename BlockSink<Text>::Unit;

public:
    static constexpr bool stopsAtZero = false;
    using BlockSink<Text>::BlockSink;

    void ascii(const char* run, unsigned count) {
        Unit* const to = this->room(8);
        for (int i = 0; i < 8; ++i) to[i] = static_cast<Unit>(static_cast<unsigned char>(run[i]));
        this->m_used += count;
    }
    void refused(uint8_t byte) { codePoint(windows1252CodePoint(byte)); }
    void codePoint(uint32_t value) {
        Unit* const to = this->room(2);
        if (sizeof(Unit) == 2 && value >= 0x10000) {
            to[0] = static_cast<Unit>(0xD7C0 + (value >> 10));
            to[1] = static_cast<Unit>(0xDC00 | (value & 0x3FF));
            this->m_used += 2;
        } else {
            to[0] = static_cast<Unit>(value);
            this->m_used += 1;
        }
    }
};

struct CountSink {
    static constexpr bool stopsAtZero = false;
    size_t count = 0;

    void ascii(const char*, unsigned run) { count += run; }
    void refused(uint8_t) { ++count; }
    void codePoint(uint32_t) { ++count; }
};

// Whether a scan that stopped after `accepted` of `piece` bytes may only have met the cut at the piece's end. Then the
// next piece, which begins with that code point, tells.
bool mayBeCut(size_t accepted, size_t piece) {
    return accepted != 0 && piece - accepted < 4;
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
    Utf8Sink sink(out);
    for (const Unit *it = units, *const end = units + count; it != end;) sink.codePoint(takeCodePoint(it, end));
    sink.flush();
}

template <class Text>
void decodeUnits(const char* text, size_t size, Text& out) {
    out.clear();
    out.reserve(countUtf8(text, size));
    UnicodeSink<Text> sink(out);
    readLeniently(text, text + size, toTheEnd, sink);
    sink.flush();
}

} // namespace

bool validateUtf8(const char* text, size_t size) {
    return kernels().validPrefix(text, size) == size;
}

size_t countUtf8(const char* text, size_t size) {
    CountSink sink;
    const char* it = text;
    const char* const end = text + size;
    while (it != end) {
        const size_t piece = std::min(pieceSize, static_cast<size_t>(end - it));
        const size_t valid = kernels().validPrefix(it, piece);
        sink.count += kernels().countValid(it, valid);
        it += valid;
        if (valid != piece && !mayBeCut(valid, piece)) readLeniently(it, end, calmDistance, sink);
    }
    return sink.count;
}

void repairUtf8(const char* text, size_t size, std::string& out) {
    out.clear();
    out.reserve(size);
    Utf8Sink sink(out);
    const char* it = text;
    const char* const end = text + size;
    while (it != end) {
        const size_t piece = std::min(pieceSize, static_cast<size_t>(end - it));
        const size_t clean = kernels().cleanPrefix(it, piece);
        out.append(it, clean);
        it += clean;
        if (clean == piece || mayBeCut(clean, piece)) continue;
        const bool goesOn = readLeniently(it, end, calmDistance, sink);
        sink.flush();
        if (!goesOn) return;
    }
}

void asciiFix(const char* text, size_t size, ControlCodes controlCodes, std::string& out) {
    out.clear();
    out.reserve(size);
    AsciiSink sink(out, controlCodes);
    readLeniently(text, text + size, toTheEnd, sink);
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
