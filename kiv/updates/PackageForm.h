#pragma once

#include "kiv/data/Item.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/updates/ProductPackage.h"

#include <string>

// The form of product packages, see doc/formats/product-package.md.

namespace kiv::internal {

inline constexpr unsigned largestPackagePiece = 1 << 20;

// The first record.
struct PackageManifestScheme : PacketScheme {
    PackageManifestScheme();

    const Field signature = Buffer("signature", unsigned{std::tuple_size_v<Signature::Bytes>});
    const Field manifest = Item("manifest", UpTo(ProductPackage::maximumManifestSize)); // what is signed
};

// All others: the next bytes of the files, never those of two.
struct PackageContentScheme : PacketScheme {
    PackageContentScheme();

    const Field bytes = Buffer("bytes", UpTo(largestPackagePiece));
};

// Both are made at the first call.
const PackageManifestScheme& packageManifestScheme();
const PackageContentScheme& packageContentScheme();

Item encodeManifest(const ProductPackage::Manifest& manifest);
// Why the item is not the encoding of a manifest that may be used; empty when `out` has it.
std::string decodeManifest(const Item& encoded, ProductPackage::Manifest& out);
// Why the manifest is none; empty when it is good.
std::string checkManifest(const ProductPackage::Manifest& manifest);

} // namespace kiv::internal
