#include "kiv/data/Item.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace kiv {

// Programs on Windows import what they bind to a reference; an inline constant would not be exported.
const unsigned Item::inlineCapacity;
const unsigned Item::maximumSize;
const int Item::maximumDepth;

static_assert(sizeof(Item) == 64, "an item is one cache line");

namespace {

constexpr char encodedGUIDMarker[] = "GUID:";

uint8_t* allocate(uint32_t size) {
    return static_cast<uint8_t*>(::operator new(size));
}

size_t lengthToZero(const char* text, size_t size) {
    const void* zero = std::memchr(text, 0, size);
    return zero ? static_cast<size_t>(static_cast<const char*>(zero) - text) : size;
}

} // namespace

void Item::freeHeap() noexcept {
    ::operator delete(m_data);
}

void Item::useInline() noexcept {
    m_data = m_inline;
    m_capacity = inlineCapacity;
}

bool Item::holds(const uint8_t* byte) const {
    const uint8_t* const first = m_data;
    return std::less_equal<>()(first, byte) && std::less<>()(byte, first + m_capacity);
}

// Makes room for `size` bytes, of which the present ones are copied, and makes that the size. Returns the heap block
// that held the bytes before, or null: the caller frees it once it has copied what it may still need from there.
uint8_t* Item::resizePlainInternal(uint64_t size) {
    if (size > maximumSize) throw std::length_error("kiv::Item: more than 2^31 - 1 bytes");
    uint8_t* const oldData = m_data;
    uint8_t* const oldBlock = m_ownsHeap ? m_data : nullptr;
    if (m_capacity == 0 && size <= inlineCapacity) {
        useInline();
    } else {
        // A block that is no larger than an item may be: the writers check the limit with the room.
        const uint64_t capacity = std::min<uint64_t>((size + 256 + (size >> 2)) & ~uint64_t{15}, maximumSize);
        m_data = allocate(static_cast<uint32_t>(capacity));
        m_capacity = static_cast<uint32_t>(capacity);
        m_ownsHeap = true;
    }
    if (m_size != 0) std::memmove(m_data, oldData, m_size);
    m_size = static_cast<uint32_t>(size);
    return oldBlock;
}

void Item::appendRuns(const Run* runs, unsigned count) {
    uint64_t size = m_size;
    for (unsigned i = 0; i < count; ++i) size += runs[i].size;
    uint32_t at = m_size;
    uint8_t* oldBlock = nullptr;
    if (size > m_capacity) {
        oldBlock = resizePlainInternal(size);
    } else {
        m_size = static_cast<uint32_t>(size);
    }
    for (unsigned i = 0; i < count; ++i) {
        if (runs[i].bytes && runs[i].size != 0) std::memcpy(m_data + at, runs[i].bytes, runs[i].size);
        at += static_cast<uint32_t>(runs[i].size);
    }
    ::operator delete(oldBlock);
}

void Item::addGrowing(ValueType type, const void* a, size_t aSize, const void* b, size_t bSize) {
    const Run runs[] = {{&type, 1}, {a, aSize}, {b, bSize}};
    appendRuns(runs, 3);
}

void Item::addCountedGrowing(ValueType type, unsigned length, const uint8_t* bytes, unsigned size) {
    addGrowing(type, &length, 4, bytes, size);
}

void Item::addFloatGrowing(double value) {
    addGrowing(ValueType::Float, &value, 8, nullptr, 0);
}

// The shortest form may still fit in.
void Item::addIntegerGrowing(long long value) {
    unsigned size = 8;
    auto type = ValueType::Int64;
    if (value == static_cast<int8_t>(value)) {
        size = 1;
        type = ValueType::Int8;
    } else if (value == static_cast<int16_t>(value)) {
        size = 2;
        type = ValueType::Int16;
    } else if (value == static_cast<int32_t>(value)) {
        size = 4;
        type = ValueType::Int32;
    }
    addGrowing(type, &value, size, nullptr, 0);
}

void Item::appendPlain(const uint8_t* bytes, unsigned size) {
    const Run run{bytes, size};
    appendRuns(&run, 1);
}

Item& Item::operator=(const Item& other) {
    if (this == &other) return *this;
    if (!m_ownsHeap || other.m_size > inlineCapacity) {
        setPlain(other.getConstByteSpan());
        m_store = other.m_store;
        return *this;
    }
    m_store = other.m_store;
    uint8_t* const oldBlock = m_data; // may hold what the other one views
    if (other.m_size != 0) std::memcpy(m_inline, other.m_data, other.m_size);
    useInline();
    m_size = other.m_size;
    m_ownsHeap = false;
    ::operator delete(oldBlock);
    return *this;
}

Item& Item::operator=(Item&& other) noexcept {
    if (this == &other) return *this;
    m_store = other.m_store;
    if (other.m_capacity == 0 && holds(other.m_data)) {
        // A view of bytes that would be gone, and no more of them than there is room for.
        setPlain(other.getConstByteSpan());
        return *this;
    }
    if (m_ownsHeap) freeHeap();
    m_ownsHeap = false;
    takeFrom(other);
    return *this;
}

void Item::setPlain(const ConstByteSpan& encoded) {
    const unsigned size = encoded.getSize();
    const uint8_t* const bytes = encoded.getBytePointer();
    if (size > maximumSize) throw std::length_error("kiv::Item: more than 2^31 - 1 bytes");
    uint8_t* oldBlock = nullptr;
    if (size > std::max<unsigned>(m_capacity, inlineCapacity)) {
        uint8_t* const block = allocate(size);
        oldBlock = m_ownsHeap ? m_data : nullptr;
        m_data = block;
        m_capacity = size;
        m_ownsHeap = true;
    } else if (m_capacity == 0) {
        useInline();
    }
    internal::copyShort(m_data, bytes, size); // the source may lie in this item, or in the old block
    m_size = size;
    ::operator delete(oldBlock);
}

void Item::resizePlain(unsigned size) {
    if (size > m_capacity) {
        if (m_size > size) m_size = size; // a view that is made shorter
        ::operator delete(resizePlainInternal(size));
    } else {
        m_size = size;
    }
}

void Item::reservePlainTotal(unsigned capacity) {
    if (capacity <= m_capacity) return;
    const uint32_t size = m_size;
    ::operator delete(resizePlainInternal(std::max(capacity, size)));
    m_size = size;
}

void Item::addString(const String& text) {
    addText(ValueType::String, text.data(), lengthToZero(text.data(), text.size()));
}

void Item::addPrefix(const String& text) {
    addText(ValueType::Prefix, text.data(), lengthToZero(text.data(), text.size()));
}

void Item::addString(const char* first, const char* second) {
    const auto type = ValueType::String;
    if (!first) first = "";
    if (!second) second = "";
    const Run runs[] = {{&type, 1}, {first, std::strlen(first)}, {second, std::strlen(second) + 1}};
    appendRuns(runs, 3);
}

void Item::addStringOrEncodedGUID(const String& text) {
    const std::string_view view(text.data(), text.size());
    GUID guid;
    if (view.starts_with(encodedGUIDMarker) && GUID::fromString(view.substr(sizeof(encodedGUIDMarker) - 1), guid)) {
        addGUID(guid);
    } else {
        addString(text);
    }
}

} // namespace kiv
