#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/Containers.h"
#include "kiv/core/SmartCStr.h"
#include "kiv/core/String.h"
#include "kiv/data/GUID.h"
#include "kiv/data/ValueType.h"
#include "kiv/platform/Compiler.h"

#include <concepts>
#include <cstdint>

namespace kivSq {
class Object;
}

namespace kiv {

class Item;

// Item::Iterator: reads an item element by element. A plain value: a pointer to the item, which must outlive it, and a
// byte offset. Every reader succeeds only on a complete element of its own type and then advances behind it; otherwise
// it returns false or null, leaves its out parameter as it was and does not move. Weak readers and views point into the
// item's bytes and are valid until the item changes. The item may grow while it is iterated.
class KIV_API ItemIterator {
public:
    ItemIterator() = default;
    // An offset outside the item stands on no element.
    explicit ItemIterator(const Item& item, int offset = 0) : m_item(&item), m_offset(offset) {}

    const Item* getItem() const { return m_item; }
    int getOffset() const { return m_offset; }
    // Rewinds to the first element, also after other changes of the item than growth.
    void begin() {
        m_offset = 0;
        m_textOffset = -1;
    }

    // The type of the element, Invalid when no complete element is here.
    inline ValueType getType() const;
    // The size of the element with its type byte, 0 when no complete element is here.
    inline unsigned getSize() const;
    // The size of the value here: that of one element, or of the two that make a script table (the prefix "table" and a
    // nested item) or closure (the prefix "squirrel" and a buffer). 0 when no complete element is here.
    unsigned getValueSize() const;
    bool hasNextElement() const { return getSize() != 0; }
    // Steps over `count` elements, fewer when they end before; true when it could take all of them.
    inline bool skip(int count = 1);
    // Stands behind the last complete element then.
    void skipToEnd();

    // All four integer codes; narrower targets take the low bits.
    template <std::integral T>
    bool asInteger(T& out) {
        long long value;
        if (!readInteger(value)) return false;
        out = static_cast<T>(value);
        return true;
    }
    inline bool asFloat(double& out);
    bool asFloat(float& out);
    inline bool asBool(bool& out);
    // Strings and prefixes.
    bool asString(String& out);
    inline const char* asWeakCStr();
    bool asBuffer(Buffer& out);
    inline bool asGUID(GUID& out);
    inline bool asNIL();
    bool asSubItem(Item& out);
    // Sets the one that is read and clears the other.
    bool asStringOrGUID(String& text, GUID& guid);
    // The script value here, of one or two elements: what addSquirrel() has made, buffers and prefixes as texts, and
    // null for all that has no script value. Functions are null unless code is trusted, and logged then when they can't
    // be loaded. Of equal keys the first wins, null keys are left out. False also, and logged, for what is nested
    // deeper than Item::maximumDepth, and without a VM. Defined in script/.
    bool asSquirrel(kivSq::Object& out, Trust trust = Trust::Data);

    // Non-null even when the buffer is empty.
    const uint8_t* asWeakBuffer();
    inline const uint8_t* asWeakBuffer(unsigned& size);
    // The payload of a Buffer, Pointer, SubItem or Referee element. Requires: `type` is one of them.
    inline bool asWeakBytes(ValueType type, ConstByteSpan& out);
    // The nested item, or a one-element view of any element, bound to no store. Refused into the iterator's own item.
    inline bool asWeakSubItem(Item& out);
    bool asWeakItemView(Item& out);
    // A nested item of pairs, with or without the prefix "table" before it; the first of equal keys wins.
    bool asWeakTable(Map<SmartCStr, Item>& out);

    // Converting readers: the strict reader first, then whatever has a sensible reading. Texts, buffers, nested items
    // and GUIDs are true; a number from a text is its leading part; an integer from a float is truncated and saturated.
    // The forms without `success` give false, 0 or the empty text where nothing converts.
    bool convertAsBool(bool& success);
    long long convertAsInteger(bool& success);
    double convertAsFloat(bool& success);
    String convertAsString(bool& success);
    bool convertAsBool();
    long long convertAsInteger();
    double convertAsFloat();
    String convertAsString();

    // Copies the element into `out` as its only one (`out` keeps its store) and advances; Invalid when there is none.
    ValueType extract(Item& out);

    friend bool operator==(const ItemIterator& a, const ItemIterator& b) {
        return a.m_item == b.m_item && a.m_offset == b.m_offset;
    }

private:
    friend class Item;

    // The bytes from here to the item's end.
    struct Rest {
        const uint8_t* bytes;
        unsigned size;
    };
    inline Rest rest() const;
    static inline bool startsWith(const Rest& here, ValueType type, unsigned size);
    inline unsigned sizeOfText(const Rest& here) const;
    inline bool readInteger(long long& out);
    void advance(unsigned size) { m_offset += static_cast<int>(size); }

    const Item* m_item = nullptr;
    int m_offset = 0;
    // Where a text was last measured and its element size: asking for type, size and content scans it once.
    mutable int m_textOffset = -1;
    mutable unsigned m_textSize = 0;
};

} // namespace kiv

// The bodies of the inline members above need the item.
#include "kiv/data/Item.h"
