#include "kiv/store/PageTree.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kiv {

using internal::EntryView;
using internal::LargeEntry;
using internal::Page;
using internal::SortBytes;
using internal::SortKey;

namespace {

struct BlockDeleter {
    void operator()(LargeEntry* block) const { LargeEntry::destroy(block); }
};
using Block = std::unique_ptr<LargeEntry, BlockDeleter>;

Block blockFor(const EntryView& entry) {
    return Block(Page::fitsRecord(entry) ? nullptr : LargeEntry::make(entry));
}

bool isSame(const ConstByteSpan& a, const ConstByteSpan& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

Page* descend(const Page* page, unsigned child) {
    Page* next = page->getChild(child);
    next->prefetch();
    return next;
}

ConstByteSpan bytesOf(Page* const& pointer) {
    return {reinterpret_cast<const uint8_t*>(&pointer), sizeof(pointer)};
}

} // namespace

void PageTree::Cursor::previous() {
    if (m_index == 0) {
        m_page = m_page->getPrevious();
        if (!m_page) return;
        m_index = m_page->getCount();
    }
    --m_index;
}

// Delegates, so that what throws halfway runs the destructor.
PageTree::PageTree(const PageTree& other) : PageTree() {
    for (Cursor at = other.first(); at; at.next()) addIfAbsent(SortKey(at.getKey()), at.m_page->at(at.m_index));
}

PageTree::PageTree(PageTree&& other) noexcept {
    swap(other);
}

PageTree& PageTree::operator=(const PageTree& other) {
    if (this != &other) {
        PageTree copy(other);
        swap(copy);
    }
    return *this;
}

PageTree& PageTree::operator=(PageTree&& other) noexcept {
    PageTree taken(std::move(other));
    swap(taken);
    return *this;
}

PageTree::~PageTree() {
    destroyAll(m_root);
    for (Page* page : m_spares) Page::destroy(m_pool, page);
}

void PageTree::swap(PageTree& other) noexcept {
    m_pool.swap(other.m_pool);
    std::swap(m_root, other.m_root);
    std::swap(m_firstLeaf, other.m_firstLeaf);
    std::swap(m_lastLeaf, other.m_lastLeaf);
    std::swap(m_count, other.m_count);
    std::swap(m_spares, other.m_spares);
    std::swap(m_pageVisits, other.m_pageVisits);
}

void PageTree::destroyAll(Page* page) noexcept {
    if (!page) return;
    if (!page->isLeaf()) {
        for (unsigned i = 0; i <= page->getCount(); ++i) destroyAll(page->getChild(i));
    }
    Page::destroy(m_pool, page);
}

void PageTree::clear() noexcept {
    if (!m_root) return;
    if (m_root->isLeaf()) {
        m_root->erase(0, m_root->getCount()); // the page will be wanted again
    } else {
        destroyAll(m_root);
        m_root = m_firstLeaf = m_lastLeaf = nullptr;
    }
    m_count = 0;
}

uint64_t PageTree::getPageMemory() const {
    return m_pool.getMemory();
}

// Searching.

void PageTree::locate(const SortKey& key, Path& path) const {
    Page* page = m_root;
    unsigned depth = 0;
    for (; !page->isLeaf(); ++depth) {
        const unsigned child = page->findChild(key);
        path.pages[depth] = page;
        path.children[depth] = child;
        page = descend(page, child);
    }
    path.depth = depth;
    path.leaf = page;
    path.place = page->find(key);
    m_pageVisits += depth + 1;
}

PageTree::Cursor PageTree::find(const SortKey& key) const {
    if (!m_root) return {};
    Page* page = m_root;
    for (; !page->isLeaf(); ++m_pageVisits) page = descend(page, page->findChild(key));
    ++m_pageVisits;
    const Page::Place place = page->find(key, true);
    return place.exact ? Cursor(page, place.index) : Cursor();
}

PageTree::Cursor PageTree::above(const SortKey& key) const {
    if (!m_root) return {};
    Path path;
    locate(key, path);
    // The one before it, or with it, and on from there; in front of the first that wraps, and next() wraps back.
    Cursor cursor(path.leaf, path.place.index - (path.place.exact ? 0 : 1));
    cursor.next();
    return cursor;
}

PageTree::Cursor PageTree::below(const SortKey& key) const {
    if (!m_root) return {};
    Path path;
    locate(key, path);
    Cursor cursor(path.leaf, path.place.index);
    cursor.previous();
    return cursor;
}

PageTree::Cursor PageTree::find(const Item& key) const {
    return find(SortKey(key));
}

PageTree::Cursor PageTree::above(const Item& key) const {
    return above(SortKey(key));
}

PageTree::Cursor PageTree::below(const Item& key) const {
    return below(SortKey(key));
}

PageTree::Cursor PageTree::first() const {
    return m_count == 0 ? Cursor() : Cursor(m_firstLeaf, 0);
}

bool PageTree::goToNextLeaf(Path& path) const {
    unsigned depth = path.depth;
    while (depth != 0 && path.children[depth - 1] == path.pages[depth - 1]->getCount()) --depth;
    if (depth == 0) return false;
    Page* page = path.pages[depth - 1]->getChild(++path.children[depth - 1]);
    for (; !page->isLeaf(); ++depth) {
        path.pages[depth] = page;
        path.children[depth] = 0;
        page = page->getChild(0);
    }
    path.leaf = page;
    path.place = {0, false};
    m_pageVisits += path.depth;
    return true;
}

// Changing.

void PageTree::set(const SortKey& key, const EntryView& entry, PageTree* undo) {
    if (!m_root) m_root = m_firstLeaf = m_lastLeaf = Page::make(m_pool, 0);
    Path path;
    locate(key, path);
    if (path.leaf->holds(entry.value) || path.leaf->holds(entry.key) || path.leaf->holds(key.getEncoded())) {
        // The page is about to move what it holds.
        const std::vector<uint8_t> keyBytes(key.getEncoded().begin(), key.getEncoded().end());
        const std::vector<uint8_t> value(entry.value.begin(), entry.value.end());
        const ConstByteSpan ownKey(keyBytes.data(), static_cast<unsigned>(keyBytes.size()));
        set(SortKey(ownKey), {ownKey, {value.data(), static_cast<unsigned>(value.size())}, entry.isAbsence}, undo);
        return;
    }
    if (undo) {
        const EntryView absence{entry.key, {}, true};
        undo->addIfAbsent(key, path.place.exact ? path.leaf->at(path.place.index) : absence);
    }
    put(path, key, entry);
}

void PageTree::put(Path& path, const SortKey& key, EntryView entry) {
    // A key that is there stays as it was written.
    if (path.place.exact) entry.key = path.leaf->at(path.place.index).key;
    Block block = blockFor(entry);
    for (;;) {
        const auto [index, exact] = path.place;
        const bool isDone = exact ? path.leaf->replace(index, entry, block.get())
                                  : path.leaf->insert(index, {key.data(), key.size()}, entry, block.get());
        if (isDone) {
            static_cast<void>(block.release());
            m_count += exact ? 0 : 1;
            return;
        }
        split(path, key);
        locate(key, path);
    }
}

bool PageTree::addIfAbsent(const SortKey& key, const EntryView& entry) {
    if (!m_root) m_root = m_firstLeaf = m_lastLeaf = Page::make(m_pool, 0);
    Path path;
    locate(key, path);
    if (path.place.exact) return false;
    put(path, key, entry);
    return true;
}

void PageTree::eraseAt(Path& path, unsigned from, unsigned to) noexcept {
    path.leaf->erase(from, to);
    m_count -= to - from;
    mend(path);
}

void PageTree::keep(PageTree& undo, const Page& page, unsigned from, unsigned to) {
    for (unsigned i = from; i < to; ++i) {
        const EntryView entry = page.at(i);
        const SortKey key(entry.key);
        undo.addIfAbsent(key, entry);
    }
}

void PageTree::remove(const SortKey& from, const SortKey& to, PageTree* undo) {
    Path path;
    while (m_root) {
        locate(from, path);
        if (path.place.index == path.leaf->getCount() && !goToNextLeaf(path)) return;
        const unsigned begin = path.place.index, count = path.leaf->getCount();
        const Page::Place last = path.leaf->find(to);
        const unsigned end = last.index + (last.exact ? 1 : 0);
        if (end <= begin) return;
        if (undo) keep(*undo, *path.leaf, begin, end);
        eraseAt(path, begin, end);
        if (end < count) return;
    }
}

void PageTree::revert(PageTree& undo) {
    for (Cursor at = undo.first(); at; at.next()) restore(at.m_page->at(at.m_index));
    undo.clear();
}

void PageTree::restore(const EntryView& entry) {
    const SortKey key(entry.key);
    Path path;
    if (m_root) {
        locate(key, path);
        const unsigned index = path.place.index;
        // The key comes back as it was written, too.
        if (path.place.exact && (entry.isAbsence || !isSame(path.leaf->at(index).key, entry.key))) {
            eraseAt(path, index, index + 1);
        } else if (!entry.isAbsence) {
            put(path, key, entry);
            return;
        }
    }
    if (!entry.isAbsence) addIfAbsent(key, entry);
}

void PageTree::absorb(PageTree& other) {
    if (empty()) {
        swap(other);
        return;
    }
    for (Cursor at = other.first(); at; at.next()) keep(*this, *at.m_page, at.m_index, at.m_index + 1);
    other.clear();
}

// Keeping the shape.

void PageTree::reserveSpares(const Path& path) {
    size_t count = 1;
    unsigned depth = path.depth;
    for (; depth != 0 && !path.pages[depth - 1]->hasRoomFor(2 + Page::maximumRecord); --depth) ++count;
    if (depth == 0) ++count; // the root may become two and want a new one above
    m_spares.reserve(count);
    while (m_spares.size() < count) m_spares.push_back(Page::make(m_pool, 0));
    if (path.depth + 2 > maximumDepth) throw std::length_error("too many entries");
}

Page* PageTree::takeSpare(unsigned level) noexcept {
    Page* page = m_spares.back();
    m_spares.pop_back();
    page->become(level);
    return page;
}

// Makes room in the leaf of `path` for the key that belongs there.
void PageTree::split(const Path& path, const SortKey& key) {
    Page& leaf = *path.leaf;
    const unsigned index = path.place.index, count = leaf.getCount();
    const bool isFull = !path.place.exact && (leaf.isFilledUpTo(index) || (index == count && &leaf == m_lastLeaf));
    const unsigned from = isFull ? index : leaf.getMiddle();
    std::optional<SortKey> scratch[2];
    const SortBytes before = leaf.getSortBytes(from - 1, scratch[0]);
    const SortBytes behind = isFull ? SortBytes{key.data(), key.size()} : leaf.getSortBytes(from, scratch[1]);
    // The shortest that is above the one and not above the other.
    const auto separatorSize = static_cast<unsigned>(commonSize(before, behind) + 1);

    reserveSpares(path);
    Page* const right = m_spares.back();
    const EntryView separator{{behind.data, separatorSize}, bytesOf(right)};
    Block block = blockFor(separator);
    leaf.moveTail(from, *right);
    takeSpare(0);
    right->linkBehind(&leaf);
    if (&leaf == m_lastLeaf) m_lastLeaf = right;
    addSeparator(path, path.depth, separator, block.release());
}

// Puts the separator, and with it the page to its right, into the page at `depth` - 1 of the path.
void PageTree::addSeparator(const Path& path, unsigned depth, const EntryView& entry, LargeEntry* block) noexcept {
    const SortBytes separator{entry.key.getBytePointer(), entry.key.getSize()};
    if (depth == 0) {
        Page* root = takeSpare(m_root->getLevel() + 1);
        root->setFirstChild(m_root);
        root->insert(0, separator, entry, block);
        m_root = root;
        return;
    }
    Page& parent = *path.pages[depth - 1];
    const unsigned index = path.children[depth - 1];
    if (parent.insert(index, separator, entry, block)) return;

    // The middle separator goes up, what is behind it goes to a page on the right.
    const unsigned middle = parent.getMiddle();
    Page* const right = takeSpare(parent.getLevel());
    right->setFirstChild(parent.getChild(middle + 1));
    LargeEntry* const upperBlock = parent.getLarge(middle);
    uint8_t upperBytes[Page::maximumRecord];
    EntryView upper = parent.at(middle);
    if (upperBlock) {
        upperBlock->setValue(bytesOf(right));
    } else {
        std::memcpy(upperBytes, upper.key.getBytePointer(), upper.key.getSize());
        upper = {{upperBytes, upper.key.getSize()}, bytesOf(right)};
    }
    parent.moveTail(middle + 1, *right);
    parent.eraseButBlock(middle);
    if (index <= middle) {
        parent.insert(index, separator, entry, block);
    } else {
        right->insert(index - middle - 1, separator, entry, block);
    }
    addSeparator(path, depth - 1, upper, upperBlock);
}

void PageTree::dropLeaf(Page* leaf) noexcept {
    if (m_firstLeaf == leaf) m_firstLeaf = leaf->getNext();
    if (m_lastLeaf == leaf) m_lastLeaf = leaf->getPrevious();
    leaf->unlink();
}

void PageTree::removeChild(Page& parent, unsigned index) noexcept {
    if (index == 0) {
        parent.setFirstChild(parent.getChild(1));
        parent.erase(0, 1);
    } else {
        parent.erase(index - 1, index);
    }
}

// Makes one of the child `left` and the next when they are small enough.
bool PageTree::merge(Page& parent, unsigned left) noexcept {
    Page& page = *parent.getChild(left);
    Page& right = *parent.getChild(left + 1);
    const size_t separatorSize = page.isLeaf() ? 0 : Page::maximumRecord;
    if (page.getUsedSize() + right.getUsedSize() + separatorSize > Page::mergeable) return false;
    if (page.isLeaf()) {
        try {
            page.appendAll(right);
        } catch (const std::bad_alloc&) {
            return false; // they stay two
        }
        dropLeaf(&right);
        parent.erase(left, left + 1);
    } else {
        LargeEntry* const block = parent.getLarge(left);
        Page* const child = right.getChild(0);
        EntryView separator = parent.at(left);
        separator.value = bytesOf(child);
        if (block) block->setValue(separator.value);
        page.insert(page.getCount(), {separator.key.getBytePointer(), separator.key.getSize()}, separator, block);
        page.appendAll(right);
        parent.eraseButBlock(left);
    }
    Page::destroy(m_pool, &right);
    return true;
}

// Mends what became too empty, from the leaf of the path up.
void PageTree::mend(const Path& path) noexcept {
    Page* child = path.leaf;
    bool isGone = child->getCount() == 0;
    for (unsigned depth = path.depth; depth != 0; --depth) {
        Page& parent = *path.pages[depth - 1];
        const unsigned index = path.children[depth - 1];
        if (isGone) {
            if (child->isLeaf()) dropLeaf(child);
            isGone = parent.getCount() == 0;
            if (!isGone) removeChild(parent, index);
            Page::destroy(m_pool, child);
        } else if (child->getUsedSize() >= Page::sparse ||
                   !((index > 0 && merge(parent, index - 1)) || (index < parent.getCount() && merge(parent, index)))) {
            break;
        }
        child = &parent;
    }
    if (isGone && child == m_root && !child->isLeaf()) {
        Page::destroy(m_pool, m_root);
        m_root = m_firstLeaf = m_lastLeaf = nullptr;
        return;
    }
    while (!m_root->isLeaf() && m_root->getCount() == 0) {
        Page* const only = m_root->getChild(0);
        Page::destroy(m_pool, m_root);
        m_root = only;
    }
}

} // namespace kiv
