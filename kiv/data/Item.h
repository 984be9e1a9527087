#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/Containers.h"
#include "kiv/core/SmartCStr.h"
#include "kiv/core/String.h"
#include "kiv/data/GUID.h"
#include "kiv/data/ItemIterator.h"
#include "kiv/data/ValueType.h"
#include "kiv/platform/Compiler.h"

#include <concepts>
#include <cstdint>
#include <cstring>
#include <functional>

namespace kivSq {
class Object;
}

namespace kiv {

class Packet;
class PacketScheme;
class Store;
template <class T>
class SmartPointer;

// A sequence of typed elements in one compact encoding: the currency for keys, values, messages and script data.
// Encodings of at most 39 bytes live inside the item and allocate nothing. An item may borrow its bytes (see
// ExternalBufferMode) and may be bound to a store, which it does not own; copies own their bytes and keep the binding.
// Writers append and can't fail, but for std::length_error past 2^31 - 1 bytes and std::bad_alloc. Readers (Iterator)
// never read outside the bytes, whatever those are. Sources of writers may lie in the item itself. Threads: as for any
// value.
class KIV_API Item {
public:
    using Iterator = ItemIterator;

    static const unsigned inlineCapacity = 39;
    static const unsigned maximumSize = 0x7FFFFFFF;
    // Texts, scripts and conversions follow nested items this deep; comparison has no limit.
    static const int maximumDepth = 128;

    struct NILType {};
    struct WildcardMode {};
    struct PlainMode {};
    struct ExternalBufferMode {};
    struct FastExternalBufferMode {};

    // Where and why a text did not decode: the byte offset of the first offending character and a lower-case reason.
    struct TextError {
        size_t offset = 0;
        const char* reason = "";
    };

    static const char* getStaticClassName() { return "Item"; }

    Item() : m_data(m_inline) { m_inline[0] = 0; }
    explicit Item(Store* store) : Item() { m_store = store; }
    Item(const char* text) : Item() { addString(text); }
    Item(const String& text) : Item() { addString(text); }
    Item(const SmartCStr& text) : Item() { addString(text); }
    template <std::integral T>
    Item(T value) : Item() {
        add(value);
    }
    template <std::floating_point T>
    Item(T value) : Item() {
        addFloat(static_cast<double>(value));
    }
    Item(const GUID& guid) : Item() { addGUID(guid); }
    Item(const uint8_t* bytes, unsigned size) : Item() { addBuffer(bytes, size); }
    explicit Item(const ConstByteSpan& bytes) : Item(bytes.getBytePointer(), bytes.getSize()) {}
    // As addSquirrel(). Defined in script/.
    explicit Item(const kivSq::Object& value);
    Item(NILType) : Item() { addNIL(); }
    Item(WildcardMode) : Item() { addWildcard(); }
    // Copies encoded bytes.
    Item(PlainMode, const ConstByteSpan& encoded) : Item() { setPlain(encoded); }
    // Borrows encoded bytes, the first 2^31 - 1 of more; the caller keeps them alive and unchanged. The first write
    // copies them.
    Item(ExternalBufferMode, const ConstByteSpan& encoded) noexcept
        : m_data(const_cast<uint8_t*>(encoded.getBytePointer())), m_capacity(0), m_size(limited(encoded.getSize())) {
        m_inline[0] = 0;
    }
    Item(FastExternalBufferMode, const ConstByteSpan& encoded) noexcept : Item(ExternalBufferMode(), encoded) {}
    Item(const Item& other) : m_store(other.m_store), m_data(m_inline) { copyBytesFrom(other); }
    // Takes a heap block over and leaves `other` empty; inline bytes are copied, a view stays a view.
    Item(Item&& other) noexcept : m_store(other.m_store) { takeFrom(other); }
    ~Item() {
        if (m_ownsHeap) freeHeap();
    }

    // Assignment takes the other's store too, even null; setPlain() keeps this item's.
    Item& operator=(const Item& other);
    Item& operator=(Item&& other) noexcept;

    explicit operator bool() const { return m_size != 0; }
    bool empty() const { return m_size == 0; }
    Store* getStore() const { return m_store; }
    void setStore(Store* store) { m_store = store; }

    // Writers: each appends one element. Texts end at their first zero byte; null is the empty text.
    inline void addInteger(long long value);
    inline void addFloat(double value);
    inline void addString(const char* text);
    void addString(const String& text);
    void addString(const SmartCStr& text) { addString(text.c_str()); }
    // One text: the first followed by the second.
    void addString(const char* first, const char* second);
    inline void addPrefix(const char* text);
    void addPrefix(const String& text);
    void addPrefix(const SmartCStr& text) { addPrefix(text.c_str()); }
    void addBuffer(const uint8_t* bytes, unsigned size) { addInternal(ValueType::Buffer, size, bytes, size); }
    void addBuffer(const Buffer& buffer) { addBuffer(buffer.getBytePointer(), buffer.getSize()); }
    void addPointer(const Item& item) { addPointer(item.m_data, item.m_size); }
    void addPointer(const uint8_t* bytes, unsigned size) { addInternal(ValueType::Pointer, size, bytes, size); }
    void addReferee(const uint8_t* bytes, unsigned size) { addInternal(ValueType::Referee, size, bytes, size); }
    // A nested item that holds the other's elements.
    void addItem(const Item& item) { addInternal(ValueType::SubItem, item.m_size, item.m_data, item.m_size); }
    // The other's elements become this item's.
    void concatItem(const Item& item) { appendPlain(item.m_data, item.m_size); }
    void addGUID(const GUID& guid) { addInternal(ValueType::GUID, guid.getBytePointer(), 32); }
    // "GUID:" and 64 hexadecimal digits, as path texts have it, becomes a GUID element, any other text a text.
    void addStringOrEncodedGUID(const String& text);
    void addBool(bool value) { addInternal(value ? ValueType::True : ValueType::False); }
    void addTrue() { addInternal(ValueType::True); }
    void addFalse() { addInternal(ValueType::False); }
    void addNIL() { addInternal(ValueType::NIL); }
    void addWildcard() { addInternal(ValueType::Wildcard); }
    // One value: null, bools, numbers, texts (those with a zero byte as buffers) and GUIDs as such, arrays as nested
    // items, tables and closures with their prefix. NIL for anything else, and, logged, for what is nested deeper than
    // maximumDepth, as all that contains itself is. Defined in script/.
    void addSquirrel(const kivSq::Object& value);

    // Unsigned 64-bit values keep their bits, so one above 2^63 - 1 reads back negative.
    template <std::integral T>
    void add(T value) {
        if constexpr (std::same_as<T, bool>) {
            addBool(value);
        } else {
            addInteger(static_cast<long long>(value));
        }
    }
    template <std::floating_point T>
    void add(T value) {
        addFloat(static_cast<double>(value));
    }
    void add(const char* text) { addString(text); }
    void add(const String& text) { addString(text); }
    void add(const SmartCStr& text) { addString(text); }
    void add(const char* first, const char* second) { addString(first, second); }
    void add(const Buffer& buffer) { addBuffer(buffer); }
    void add(const Item& item) { addItem(item); }
    void add(const GUID& guid) { addGUID(guid); }
    void add(const void*) = delete; // a pointer is no truth value

    // The encoded bytes, valid until the next change of the item.
    const uint8_t* getPlainBytePointer() const { return m_data; }
    uint8_t* getPlainBytePointer() { return m_data; }
    unsigned getPlainSize() const { return m_size; }
    // 39 while inline, 0 while borrowed, else the size of the block.
    unsigned getPlainCapacity() const { return m_capacity; }
    ConstByteSpan getConstByteSpan() const { return {m_data, m_size}; }
    // Replaces the encoded bytes by a copy; the store stays.
    void setPlain(const ConstByteSpan& encoded);
    void setPlain(const Item& item) { setPlain(item.getConstByteSpan()); }
    // Borrows, as ExternalBufferMode; the store stays. Requires: the bytes are not this item's own.
    inline void setPlainExternalBuffer(const ConstByteSpan& encoded);
    // New bytes are unspecified.
    void resizePlain(unsigned size);
    void reservePlainTotal(unsigned capacity);
    inline void clear();

    // Texts of the whole encoding. The setters return false, leave the item unchanged and fill `error` when given.
    String getBase16() const;
    String getBase64() const;
    String getBase64crc() const;
    bool setBase16(const String& text, TextError* error = nullptr);
    bool setBase64(const String& text, TextError* error = nullptr);
    bool setBase64crc(const String& text, TextError* error = nullptr);
    // One value gives that value, none or several an array of values; see doc/formats/item.md for the mapping.
    // The form with indentation of four blanks when `pretty`. An undecodable rest is left out.
    String getJSON(bool pretty) const;
    bool setJSON(const String& text, TextError* error = nullptr);
    // Debug text and path text.
    String asString() const;
    String asBrowsableString() const;

    // The iterator points to this item, which must outlive it.
    inline Iterator getIterator() const&;
    Iterator getIterator() const&& = delete;

    // The size of the element at a byte offset with its type byte, 0 when no complete element is there.
    inline unsigned decodeGetSizeOfNextElement(int offset) const;
    // ItemIterator::asSquirrel() at a byte offset. Defined in script/.
    bool decodeElementAsSquirrel(int offset, kivSq::Object& out, Trust trust = Trust::Data) const;

    // Order of the elements one by one; a wildcard matches any one element, and NaN equals every number.
    static int compare(const Item& a, const Item& b);
    int compare(const Item& other) const { return compare(*this, other); }
    // The same for every key without wildcard and NaN, but total: a wildcard sorts between all others and End, NaN
    // after every number. The order of sets, maps and stores.
    static int compareTotal(const Item& a, const Item& b);
    friend bool operator==(const Item& a, const Item& b) { return compare(a, b) == 0; }
    friend bool operator<(const Item& a, const Item& b) { return compare(a, b) < 0; }
    friend bool operator<=(const Item& a, const Item& b) { return compare(a, b) <= 0; }
    friend bool operator>(const Item& a, const Item& b) { return compare(a, b) > 0; }
    friend bool operator>=(const Item& a, const Item& b) { return compare(a, b) >= 0; }

    // Fit to be a key although it came from outside: decodable to its end, value elements only, no NaN, at most 64
    // elements in every item, 64 KiB, and 16 levels with the key's own.
    bool isCleanKey() const;

    // Tables: a run of pairs, a text and one value. A value is one element, or the two of a script table or closure.
    // The iterator stands on the value, or at the end; a miss of kvFind() is logged.
    Iterator kvFind(const char* key) const&;
    Iterator kvFind(const char* key) const&& = delete;
    Iterator kvTryFind(const char* key) const&;
    Iterator kvTryFind(const char* key) const&& = delete;
    // Replaces the contents by the pairs of the map; an empty value becomes NIL.
    void kvFromMap(const Map<String, Item>& map);
    // Keys and values borrow this item's bytes; the first of equal keys wins.
    Map<SmartCStr, Item> kvToWeakMap() const&;
    Map<SmartCStr, Item> kvToWeakMap() const&& = delete;

    // Paths: the elements are the levels of a tree.
    int getDepth() const;
    // Drops the last element; false when there was none. The other form writes the parent into `out`, with this store.
    bool parent();
    bool parent(Item& out) const;
    void reduceDepthTo(int depth);
    // Keeps the last element alone; the other form writes it into `out`, with this store. False when there is none.
    bool trail();
    bool trail(Item& out) const;

    // Tree navigation and storage in the bound store. Defined in store/. Without a store nothing is found, and what
    // would change it is logged. Where the result is false, `out` is as it was; it may be this item.
    // The stored value, as Store::get() gives it; null when there is none.
    const Item* fetch() const;
    bool exists() const;
    // Stores `value` under this key, and empty values under those of its ancestors that have none.
    void store(const Item& value) const;
    // Does nothing when `key` has no value.
    void copyValueFrom(const Item& key) const;
    // Copies what is below `from` to below this key; `from` may be of another store, and either may lie below the
    // other.
    void copyChildrenRecursive(const Item& from) const;
    // With all that is below.
    void remove() const;
    // The first, resp. last child of a key that exists; the next, resp. previous sibling. Where keys are stored without
    // their ancestors, child() and next() find the first key itself, however deep; the others an ancestor of it.
    bool child(Item& out) const;
    bool next(Item& out) const;
    bool prev(Item& out) const;
    bool lastChild(Item& out) const;
    // Move this item.
    bool next();
    bool prev();
    // The store's transactions.
    void begin() const;
    void commit() const;
    void rollback() const;
    // This key and a random negative integer that is not in use there.
    void createUniqueInteger(Item& out) const;
    // Adds a record below this key, in one transaction: under a unique time (microseconds since 1970), the children
    // "type" (the name), "path" (the key `value`) and "value" (what its store has at and below that key;
    // doc/formats/store-records.md). The other form removes the records older than `time`.
    void archive(const char* name, const Item& value) const;
    void archiveDeleteBefore(long long time) const;
    // A packet under this key: below it, beside its scheme's name and in place of all that was there, or as the key's
    // own value. Packets without scheme are logged and not stored. fetchPacket() reads both forms; null when there is
    // none, or it does not fit the scheme. Ports are not stored.
    void storePacket(const Packet* packet) const;
    void storePacketCompact(const Packet* packet) const;
    SmartPointer<Packet> fetchPacket(const PacketScheme* scheme) const;
    SmartPointer<Packet> fetchPacketCompact(const PacketScheme* scheme) const;

protected:
    inline void addInternal(ValueType type);
    void addInternal(ValueType type, const uint8_t* payload, unsigned size) {
        addInternal(type, payload, size, nullptr, 0);
    }
    inline void addInternal(ValueType type, unsigned length, const uint8_t* bytes, unsigned size);
    inline void addInternal(ValueType type, const uint8_t* a, unsigned aSize, const uint8_t* b, unsigned bSize);
    // Grows by `size` unspecified bytes and returns the first of them.
    inline uint8_t* appendPlain(unsigned size);
    void appendPlain(const uint8_t* bytes, unsigned size);

private:
    friend class ItemIterator;

    struct Run {
        const void* bytes;
        size_t size;
    };

    // What the writers do when there is not room enough, out of their way.
    void addIntegerGrowing(long long value);
    void addFloatGrowing(double value);
    void addCountedGrowing(ValueType type, unsigned length, const uint8_t* bytes, unsigned size);
    void addGrowing(ValueType type, const void* a, size_t aSize, const void* b, size_t bSize);
    // Requires: no zero byte within the text.
    inline void addText(ValueType type, const char* text, size_t size);
    void appendRuns(const Run* runs, unsigned count);
    uint8_t* resizePlainInternal(uint64_t size);
    inline void copyBytesFrom(const Item& other);
    inline void takeFrom(Item& other) noexcept;
    // Not by the address of the bytes: compilers can't tell where a view points, and warn of copying what it leaves
    // unset.
    bool isInline() const { return m_capacity == inlineCapacity && !m_ownsHeap; }
    void freeHeap() noexcept;
    void useInline() noexcept;
    // Whether the byte lies in this item's own storage, not in what it views.
    bool holds(const uint8_t* byte) const;
    static constexpr unsigned limited(unsigned size) { return size < maximumSize ? size : maximumSize; }
    int offsetOfLastElement() const;

    Store* m_store = nullptr;
    uint8_t* m_data;
    uint32_t m_capacity = inlineCapacity;
    uint32_t m_size = 0;
    // Moves copy it whole, whatever is in it; constructors write its first byte, for compilers warn of bytes nobody
    // wrote.
    uint8_t m_inline[inlineCapacity];
    bool m_ownsHeap = false;
};

} // namespace kiv

// Sets and maps of items are ordered by the total order.
template <>
struct std::less<kiv::Item> {
    bool operator()(const kiv::Item& a, const kiv::Item& b) const { return kiv::Item::compareTotal(a, b) < 0; }
};

#include "kiv/data/ItemInline.h"
#include "kiv/data/ItemIterator.h"
