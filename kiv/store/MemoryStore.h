#pragma once

#include "kiv/store/PageTree.h"
#include "kiv/store/Store.h"

#include <memory>

namespace kiv {

// A store in memory. `transactional` ones keep, for each open transaction, what its changes replaced, so that begin()
// costs nothing and commit() and rollback() cost what was changed; the others ignore begin() and commit().
// What get() returns are views: one for each key, valid until the next change of the store. Copies copy everything,
// open transactions too. Threads: one at a time, for reading as well.
class KIV_API MemoryStore : public Store {
    KIV_OBJECT(MemoryStore, Store)
public:
    explicit MemoryStore(bool transactional);
    MemoryStore(const MemoryStore& other);
    // Leaves `other` empty, without transactions.
    MemoryStore(MemoryStore&& other) noexcept;
    MemoryStore& operator=(const MemoryStore& other);
    MemoryStore& operator=(MemoryStore&& other) noexcept;
    ~MemoryStore() override;

    bool good() const override;
    void set(const Item& key, const Item& value) override;
    const Item* get(const Item& key) override;
    void remove(const Item& from, const Item& to) override;
    bool next(const Item& key, Item& out) override;
    bool prev(const Item& key, Item& out) override;
    bool first(Item& out) override;
    void begin() override;
    void commit() override;
    void rollback() override;
    void close() override;
    void flush() override;
    int64_t getSizeInBytes() const override;

    bool isTransactional() const { return m_transactional; }
    // One more than there are open transactions.
    uint64_t getNumberOfLayers() const { return m_journals.size() + 1; }
    // All entries as they are now, the changes of open transactions included.
    const PageTree& lastData() const { return m_data; }

    // All entries as a value below HKEY_LOCAL_MACHINE, and back (see StoreBlob). Loading adds to the entries that are
    // there, also when it fails half-way. False without a message when that fails, and always where there is no
    // registry.
    static bool saveToWindowsRegistry(MemoryStore* store, const String& keyPath, const String& valueName);
    static bool loadFromWindowsRegistry(MemoryStore* store, const String& keyPath, const String& valueName);

private:
    PageTree* undo() { return m_journals.empty() ? nullptr : &m_journals.back(); }
    // Reading on from where the last key was handed out needs no search.
    bool isAtCursor(const Item& key) const;
    bool handOut(const PageTree::Cursor& cursor, Item& out);
    void startChange();
    const Item* view(const PageTree::Cursor& cursor);
    void dropJournal() noexcept;

    PageTree m_data;
    Vector<PageTree> m_journals; // what each open transaction replaced, the innermost last
    PageTree m_spareJournal;     // empty; its page serves the next transaction
    PageTree::Cursor m_cursor;   // at the key handed out last
    // The first values that are handed out after a change are viewed from here, which keeps them close together and
    // pages free of views; more are viewed from their pages, where there is one view for each.
    static constexpr unsigned viewCount = 256;
    std::unique_ptr<Item[]> m_views;
    unsigned m_viewsUsed = 0;
    bool m_transactional;
};

} // namespace kiv
