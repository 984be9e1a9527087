#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>

namespace kiv {

class ReportGenerator;

// An ordered database of items under items. Keys are ordered by Item::compareTotal(), so a key's descendants, which
// extend it by further elements, lie directly behind it. Keys and values that a store hands out are bound to it.
// Ownership: counted; items refer to their store without keeping it. Threads: one at a time. Misuse is logged and
// survived.
class KIV_API Store : public Object {
    KIV_OBJECT(Store, Object)
public:
    // The store is usable.
    virtual bool good() const = 0;
    // Inserts or overwrites.
    virtual void set(const Item& key, const Item& value) = 0;
    // The value for exactly this key, or null; valid until the next change of the store.
    virtual const Item* get(const Item& key) = 0;
    // Erases every key from `from` to `to`, both included.
    virtual void remove(const Item& from, const Item& to) = 0;
    // The smallest key above, resp. the largest key below `key`, which may be `out` itself. False when there is none,
    // and `out` is as it was.
    virtual bool next(const Item& key, Item& out) = 0;
    virtual bool prev(const Item& key, Item& out) = 0;
    // The smallest key of all; false when there is none.
    virtual bool first(Item& out) = 0;
    // Transactions nest: commit() and rollback() close the innermost. The changes of one that is committed belong to
    // the transaction around it.
    virtual void begin() = 0;
    virtual void commit() = 0;
    virtual void rollback() = 0;
    // Releases the backing resource, resp. writes buffered changes to it.
    virtual void close() = 0;
    virtual void flush() = 0;
    // Of the backing data; 0 where there is none.
    virtual int64_t getSizeInBytes() const = 0;

    // Copy all entries of `source` in one transaction, over those that are here, and flush. The second form leaves out
    // what is at or below the keys in `exclude`, and entries with a marker (Meta, Referee, Wildcard, End) among the
    // elements of their keys. Null and this store itself are refused with an error in the log.
    void copyFrom(Store* source);
    void copyFrom(Store* source, const Set<Item>& exclude);
    // Every entry as a line of the log, of the UTF-8 text file at `path`, which is replaced, or of a section "store:"
    // of the report. A file that can't be written is an error in the log.
    void dumpraw();
    void dumpToFile(const char* path);
    void report(ReportGenerator* generator);
    // Times one walk over all entries and logs the milliseconds.
    void benchmark();
};

} // namespace kiv
