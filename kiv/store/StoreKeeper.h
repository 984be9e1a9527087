#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/tasks/TaskQueue.h"

#include <memory>

namespace kiv {

// A store in memory that is kept in a store file (doc/formats/store-file.md): loaded at the start, and written whole
// when its owner says so, in the background, one write after another. A program that is killed leaves the state before
// or after a save. One program at a time: of two that keep the same file the last to save prevails.
// Ownership: counted; keeps the store, and its destructor saves what is to be saved. Threads: one, that of the store.
// Failures are logged; a save that failed is tried again by the next one or by flush().
class KIV_API StoreKeeper : public Object {
    KIV_OBJECT(StoreKeeper, Object)
public:
    // Writes on the pool that is current then, without one within saveSoon().
    StoreKeeper();
    StoreKeeper(const StoreKeeper&) = delete;
    StoreKeeper& operator=(const StoreKeeper&) = delete;
    ~StoreKeeper() override;

    // Once. Where there is no file the store is empty, and the first save makes it. False when the file can't be read
    // or is damaged: then the store is empty and nothing is saved, so that the file stays as it is.
    bool open(TextArg path);
    bool isOpen() const { return m_saving != nullptr; }
    MemoryStore* getStore() const { return m_store.get(); }

    // Saves the store as it is now, without the changes of open transactions. Takes the time of a copy of the store;
    // of saves that wait for another only the last is written.
    void saveSoon();
    // Returns when nothing is left to be written: true when the last save is on the disk.
    bool flush();
    // Writes what saveSoon() would to another file, and waits until that is on the disk; false, and logged, when it
    // can't.
    bool saveCopy(TextArg path) const;
    // While a save is being written or waits for that. The owner who saves with each change need not copy the store
    // meanwhile: one save afterwards has all changes.
    bool isBusy() const;
    // False from a failed write until one succeeds.
    bool isSaved() const;

private:
    class Saving;

    // What is saved of the store; null when it is too large.
    std::unique_ptr<Buffer> copyStore() const;

    const SmartPointer<MemoryStore> m_store;
    const SmartPointer<TaskQueue> m_queue; // null without a pool
    std::shared_ptr<Saving> m_saving;      // shared with the tasks; null until a file is open
};

} // namespace kiv
