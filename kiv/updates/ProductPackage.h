#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Sha256.h"
#include "kiv/core/Signature.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <functional>

namespace kiv {

// A product and its files in one packet file: a signed manifest, which has the size and SHA-256 of each file, and their
// contents (doc/formats/product-package.md). Files of any size pass through a memory of a few MiB. Who holds the secret
// key answers for the contents; nothing of a package counts before the signature has been verified.
// Threads: any, also several on one package. Failures give false and are logged with their reason.
class KIV_API ProductPackage {
public:
    struct File {
        String name; // a resource name below the product's folder
        uint64_t size = 0;
        Sha256::Digest digest{};
    };
    struct KIV_API Manifest {
        String product;
        String version;
        Vector<File> files; // in the order of the names' bytes

        uint64_t getTotalSize() const;
    };
    // Of the files' bytes; false stops, which is a failure.
    using Progress = std::function<bool(uint64_t done, uint64_t total)>;

    static const unsigned maximumFileCount = 65536;
    static const unsigned maximumNameSize = 1024; // bytes, 240 of them in a part
    static const unsigned maximumTextSize = 256;  // of product and version
    static const unsigned maximumManifestSize = 0x800000;

    // Of all files in a folder and below it. The package takes the place of what was at `path`, at once, when it is
    // whole. Links and names that a package can't have are failures; empty folders are left out.
    static bool create(TextArg path, TextArg folder, TextArg product, TextArg version, const Signature::SecretKey& key,
                       const Progress& progress = {});
    // The signature, and no more; `out` is as it was on failure.
    static bool readManifest(TextArg path, const Signature::PublicKey& key, Manifest& out);
    // The signature, every file, and that there is nothing else.
    static bool verify(TextArg path, const Signature::PublicKey& key, const Progress& progress = {});
    // Verifies while it writes into a folder beside `directory`, which then becomes that; on failure nothing is left.
    // There must be nothing of the name yet.
    static bool unpack(TextArg path, TextArg directory, const Signature::PublicKey& key, const Progress& progress = {});
};

} // namespace kiv
