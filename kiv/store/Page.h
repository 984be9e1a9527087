#pragma once

#include "kiv/store/PagePool.h"
#include "kiv/store/SortKey.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kiv {
class Store;
}

namespace kiv::internal {

// The bytes of an entry where they lie. An entry may stand for the absence of its key, and has no value then.
struct EntryView {
    ConstByteSpan key;
    ConstByteSpan value;
    bool isAbsence = false;
};

// An entry too large for a page, in a block of its own: this, the key, the value.
struct LargeEntry {
    uint32_t keySize;
    uint32_t valueSize;
    bool isAbsence;

    inline EntryView view() const;
    // Requires: as long as the value is now.
    void setValue(const ConstByteSpan& value);
    static LargeEntry* make(const EntryView& entry);
    static void destroy(LargeEntry* entry) noexcept;
};

struct SortBytes {
    const uint8_t* data;
    size_t size;
};

// The length of the longest common beginning.
size_t commonSize(SortBytes a, SortBytes b);

// Some entries in order, in 4096 bytes. From the front: this header, a prefix that the sort keys of all entries have in
// common, and the slots in order; from the back: the records, with gaps where some were removed. A slot holds the eight
// bytes of its sort key behind the prefix, which decide nearly every comparison without a look at the record.
// A leaf (level 0) holds keys as they were given, and values. The pages above hold sort keys that separate their
// children, and have the children as values; the first child has no separator.
// What throws has changed nothing.
class Page {
public:
    static constexpr size_t size = PagePool::blockSize;
    // Larger entries go into blocks, so that half a page always has room for one more.
    static constexpr size_t maximumRecord = 720;
    static constexpr size_t maximumPrefix = 128;

    // Where a key is or, if it is not `exact`, belongs.
    struct Place {
        unsigned index;
        bool exact;
    };

    static Page* make(PagePool& pool, unsigned level);
    static void destroy(PagePool& pool, Page* page) noexcept; // without its children
    // Makes a page that was never used one of another level.
    void become(unsigned level) { m_level = static_cast<uint16_t>(level); }

    unsigned getLevel() const { return m_level; }
    bool isLeaf() const { return m_level == 0; }
    unsigned getCount() const { return m_count; }
    // What the entries take, gaps left out; two pages can become one when the sum is at most `mergeable`.
    size_t getUsedSize() const { return m_count * sizeof(Slot) + (size - m_recordsBegin - m_gaps); }
    static constexpr size_t sparse = size / 4, mergeable = size * 3 / 4;

    inline EntryView at(unsigned index) const;
    // Starts to load what a search will look at: memory gives several lines at once as quickly as one.
    inline void prefetch() const;
    // `isForView`: the entry will be handed out as a view.
    inline Place find(const SortKey& key, bool isForView = false) const;
    // The sort key of an entry; `scratch` holds it for a leaf.
    SortBytes getSortBytes(unsigned index, std::optional<SortKey>& scratch) const;
    // An item that views the value: one for each index, valid until the page changes. Requires: isLeaf().
    const Item* view(PagePool& pool, unsigned index, Store* store);

    Page* getNext() const { return m_next; }
    Page* getPrevious() const { return m_previous; }
    void linkBehind(Page* previous) noexcept;
    void unlink() noexcept;

    // Children, from 0 to getCount(): child i is left of separator i.
    inline unsigned findChild(const SortKey& key) const;
    inline Page* getChild(unsigned index) const;
    void setFirstChild(Page* child) { m_firstChild = child; }

    // Whether a record can hold the entry; otherwise it wants a block.
    static bool fitsRecord(const EntryView& entry);
    // Inserts before `index`; the page becomes the owner of `block`, which holds the entry unless it is null. False
    // when there is no room. The entry must not lie in this page.
    bool insert(unsigned index, SortBytes key, const EntryView& entry, LargeEntry* block);
    // Gives the entry at `index` another value; the key stays as it is. False when there is no room.
    bool replace(unsigned index, const EntryView& entry, LargeEntry* block) noexcept;
    // Removes the entries from `from` to before `to`.
    void erase(unsigned from, unsigned to) noexcept;
    // The entry's block, or null.
    inline LargeEntry* getLarge(unsigned index) const;
    // Removes an entry but not its block, which the caller owns now.
    void eraseButBlock(unsigned index) noexcept;
    bool holds(const ConstByteSpan& span) const;
    // Whether an entry of this size has room, if need be after compaction.
    bool hasRoomFor(size_t record) const { return sizeof(Slot) + record <= room() + m_gaps; }

    // Whether entries come in ascending order just before `index`, so that what is before it stays as it is for long.
    bool isFilledUpTo(unsigned index) const;
    // About half of the bytes are before it. Requires: at least two entries.
    unsigned getMiddle() const;
    // Moves all from `from` on to the empty page `to`, resp. all of `right`, the page behind this, to the end.
    void moveTail(unsigned from, Page& to);
    void appendAll(Page& right);

private:
    struct Slot {
        uint32_t headHalves[2]; // a word, which needs no alignment
        uint16_t keySize;       // or `large`
        uint16_t offset;        // of the record

        uint64_t getHead() const { return loadUnaligned<uint64_t>(headHalves); }
        void setHead(uint64_t head) { storeUnaligned(headHalves, head); }
    };
    // Records: two bytes for the size of the value or `absence`, the key, the value; of a large entry its pointer.
    static constexpr uint16_t large = 0xFFFF, absence = 0xFFFF;
    static constexpr unsigned maximumCount = size / (sizeof(Slot) + 2);
    static constexpr unsigned viewsOfBlock = PagePool::blockSize / sizeof(Item);

    explicit Page(unsigned level);
    void clear() noexcept;
    void makeViews(PagePool& pool);
    void freeViews(PagePool& pool) noexcept;

    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(this); }
    const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(this); }
    uint8_t* prefix() { return bytes() + sizeof(Page); }
    const uint8_t* prefix() const { return bytes() + sizeof(Page); }
    Slot* slots() { return reinterpret_cast<Slot*>(bytes() + m_slotsBegin); }
    const Slot* slots() const { return reinterpret_cast<const Slot*>(bytes() + m_slotsBegin); }
    size_t room() const { return m_recordsBegin - (m_slotsBegin + m_count * sizeof(Slot)); }
    inline unsigned sizeOfRecord(const Slot& slot) const;

    inline int compareWithPrefix(const SortKey& key) const;
    inline unsigned findHead(uint64_t head) const;
    Place findAmongEqualHeads(unsigned begin, const SortKey& key) const;
    int compareAt(unsigned index, const SortKey& key) const;

    void setPrefix(const uint8_t* bytes, size_t prefixSize) noexcept;
    void computeHeads(unsigned from, unsigned to, size_t prefixSize, uint64_t* heads) const;
    void copyEntries(const Page& from, unsigned begin, unsigned end, const uint64_t* heads) noexcept;
    void shortenPrefix(size_t prefixSize);
    void compact() noexcept;
    uint16_t writeRecord(const EntryView& entry, const LargeEntry* block) noexcept;

    Page* m_next = nullptr;
    Page* m_previous = nullptr;
    union {
        Page* m_firstChild;
        Item* m_views; // of a leaf
    };
    uint16_t m_viewCount = 0;
    uint16_t m_level;
    uint16_t m_count;
    uint16_t m_slotsBegin;
    uint16_t m_recordsBegin;
    uint16_t m_gaps; // bytes of removed records
    uint16_t m_prefixSize;
    uint16_t m_lastInsertion = 0;
    uint16_t m_ascending = 0; // insertions that were each right behind the one before
};

} // namespace kiv::internal
