// A memory store as a value of the Windows registry.

#include "kiv/platform/Registry.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/StoreBlob.h"

namespace kiv {

bool MemoryStore::saveToWindowsRegistry(MemoryStore* store, const String& keyPath, const String& valueName) {
    Buffer blob;
    return store && StoreBlob::encode(*store, blob) &&
           platform::writeRegistryValue(keyPath.to_std_string(), valueName.to_std_string(), blob.getBytePointer(),
                                        blob.getSize());
}

bool MemoryStore::loadFromWindowsRegistry(MemoryStore* store, const String& keyPath, const String& valueName) {
    Buffer blob;
    const auto space = [&blob](size_t size) {
        blob.resize(static_cast<unsigned>(size));
        return blob.getBytePointer();
    };
    return store && platform::readRegistryValue(keyPath.to_std_string(), valueName.to_std_string(), space) &&
           StoreBlob::decode(blob.getConstByteSpan(), *store);
}

} // namespace kiv
