#include "kiv/store/MemoryStore.h"
#include "kiv/store/StoreBlob.h"

#include <cstdlib>

// Whatever is decoded, up to damage, makes a store of clean keys whose blob decodes to the same store.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kiv::MemoryStore store(false), again(false);
    kiv::StoreBlob::decode(kiv::ConstByteSpan(data, static_cast<unsigned>(size)), store);
    kiv::Buffer blob, blobAgain;
    if (!kiv::StoreBlob::encode(store, blob) || blob.getSize() > size) std::abort();
    if (!kiv::StoreBlob::decode(blob.getConstByteSpan(), again)) std::abort();
    if (!kiv::StoreBlob::encode(again, blobAgain) || blob != blobAgain) std::abort();
    kiv::Item key;
    for (bool more = store.first(key); more; more = store.next(key, key))
        if (!key.isCleanKey()) std::abort();
    return 0;
}
