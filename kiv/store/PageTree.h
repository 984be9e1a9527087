#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/store/Page.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kiv {

// Items under items in order, packed into pages that form a B+ tree. Entries are copied in and out; what is handed out
// in place stays valid until the next change of the tree. Threads: one at a time. Failures: where memory ends, searches
// and set() throw std::bad_alloc and leave the entries as they were; the changes of several entries say themselves what
// they leave.
class KIV_API PageTree {
public:
    // An entry, or none. Valid until the next change of the tree.
    class KIV_API Cursor {
    public:
        Cursor() = default;

        explicit operator bool() const { return m_page != nullptr; }
        // Require: there is an entry.
        inline ConstByteSpan getKey() const;
        inline ConstByteSpan getValue() const;
        inline void next();
        void previous();

    private:
        friend class PageTree;
        Cursor(internal::Page* page, unsigned index) : m_page(page), m_index(index) {}

        internal::Page* m_page = nullptr;
        unsigned m_index = 0;
    };

    PageTree() = default;
    // A copy has its own memory, packed anew.
    PageTree(const PageTree& other);
    PageTree(PageTree&& other) noexcept;
    PageTree& operator=(const PageTree& other);
    PageTree& operator=(PageTree&& other) noexcept;
    ~PageTree();

    uint64_t getCount() const { return m_count; }
    bool empty() const { return m_count == 0; }
    // The memory that pages take or have in reserve, in bytes; entries too large for a page take their size besides.
    uint64_t getPageMemory() const;
    Cursor first() const;
    Cursor find(const internal::SortKey& key) const;
    // The first entry above the key, resp. the last below it.
    Cursor above(const internal::SortKey& key) const;
    Cursor below(const internal::SortKey& key) const;
    Cursor find(const Item& key) const;
    Cursor above(const Item& key) const;
    Cursor below(const Item& key) const;
    // An item that views the value; one for each entry.
    const Item* view(const Cursor& cursor, Store* store) { return cursor.m_page->view(m_pool, cursor.m_index, store); }

    // Inserts the entry or gives the key that is there its value; the key stays as it was first written. Into `undo`,
    // unless null or it knows the key, goes what was there before: an entry, or the absence of one. What throws may
    // have got that far, which does no harm. The entry may lie in this tree.
    void set(const internal::SortKey& key, const internal::EntryView& entry, PageTree* undo = nullptr);
    // Removes all entries from `from` to `to`, both included, which must not lie in this tree; into `undo` as above.
    // What throws has removed none or some, the lowest first, and `undo` has all of these.
    void remove(const internal::SortKey& from, const internal::SortKey& to, PageTree* undo = nullptr);
    // Undoes what went into `undo`, which is empty then. What throws leaves `undo` as it is, and can be done again.
    void revert(PageTree& undo);
    // Takes the entries whose keys it does not know yet; `other` is empty then. What throws has taken none or some, and
    // leaves `other` as it is.
    void absorb(PageTree& other);
    void clear() noexcept;
    void swap(PageTree& other) noexcept;

    // How many pages searches and changes have looked at: the cost of an operation in a form that tests can compare.
    uint64_t getPageVisits() const { return m_pageVisits; }

private:
    using Page = internal::Page;
    static constexpr unsigned maximumDepth = 48;

    // From the root to a place in a leaf. children[i] leads from pages[i] on.
    struct Path {
        Page* pages[maximumDepth];
        unsigned children[maximumDepth];
        unsigned depth = 0; // pages above the leaf
        Page* leaf = nullptr;
        Page::Place place{0, false};
    };

    void locate(const internal::SortKey& key, Path& path) const;
    bool goToNextLeaf(Path& path) const;

    void put(Path& path, const internal::SortKey& key, internal::EntryView entry);
    bool addIfAbsent(const internal::SortKey& key, const internal::EntryView& entry);
    void restore(const internal::EntryView& entry);
    void eraseAt(Path& path, unsigned from, unsigned to) noexcept;
    void keep(PageTree& undo, const Page& page, unsigned from, unsigned to);

    void split(const Path& path, const internal::SortKey& key);
    void reserveSpares(const Path& path);
    Page* takeSpare(unsigned level) noexcept;
    void addSeparator(const Path& path, unsigned depth, const internal::EntryView& entry,
                      internal::LargeEntry* block) noexcept;
    void mend(const Path& path) noexcept;
    bool merge(Page& parent, unsigned left) noexcept;
    void removeChild(Page& parent, unsigned index) noexcept;
    void dropLeaf(Page* leaf) noexcept;
    void destroyAll(Page* page) noexcept;

    internal::PagePool m_pool;
    Page* m_root = nullptr;
    Page* m_firstLeaf = nullptr;
    Page* m_lastLeaf = nullptr;
    uint64_t m_count = 0;
    std::vector<Page*> m_spares; // pages for splits, which must not fail halfway
    mutable uint64_t m_pageVisits = 0;
};

} // namespace kiv

#include "kiv/store/PageSearch.h"

namespace kiv {

inline ConstByteSpan PageTree::Cursor::getKey() const {
    return m_page->at(m_index).key;
}

inline ConstByteSpan PageTree::Cursor::getValue() const {
    return m_page->at(m_index).value;
}

inline void PageTree::Cursor::next() {
    if (++m_index < m_page->getCount()) return;
    m_page = m_page->getNext();
    m_index = 0;
}

} // namespace kiv
