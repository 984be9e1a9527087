#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/store/MemoryStore.h"

#include <cstdint>
#include <functional>

namespace kiv {

// Whole stores as files (doc/formats/store-file.md). Paths are UTF-8; failures are logged with the path and the reason
// and give false. Threads: those of the store.
class KIV_API StoreFile {
public:
    // Hears as the work goes on how many bytes of the file are done, and of how many; 0 where that is not known.
    using Progress = std::function<void(uint64_t done, uint64_t total)>;

    // All entries, with the changes of open transactions. Replaces the file at once: whenever this fails or the program
    // is stopped, the file is the old one, whole, or the new one. Refuses a store with a key that is not clean
    // (Item::isCleanKey), for it could not be loaded.
    static bool save(Store* store, TextArg path, const Progress& progress = {});

    // The same with what StoreBlob::encode() has made of a store, which may have changed since. On any thread.
    static bool saveBlob(const ConstByteSpan& blob, TextArg path);

    // Replaces the contents of the store when the whole file has proved right, else changes nothing. The store must not
    // have an open transaction.
    static bool load(MemoryStore* store, TextArg path, const Progress& progress = {});
};

} // namespace kiv
