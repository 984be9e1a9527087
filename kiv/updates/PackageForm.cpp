#include "kiv/updates/PackageForm.h"

#include "kiv/files/ResourceLocator.h"
#include "kiv/rpc/FileTransfer.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

namespace kiv::internal {

namespace {

constexpr short firstID = 21120;
// In what is signed, so that no other signature of the same key can pass for one of a package.
constexpr const char* formName = "kivCore product package 1";
constexpr size_t longestPart = 240; // with what temporary files have behind the name, systems take 255

using Names = std::unordered_set<std::string>;

std::string quoted(const String& name) {
    return '"' + name.utf8_escape_controlcode().to_std_string() + '"';
}

bool isPackageName(const String& name) {
    if (name.size() > ProductPackage::maximumNameSize || !name.validate() || !ResourceLocator::isResourceName(name))
        return false;
    const Vector<String> parts = name.split('/');
    // While "x" is unpacked it is called "x.new", and some systems take "X.new" for that.
    return std::all_of(parts.begin(), parts.end(), [](const String& part) {
        return part.size() <= longestPart && !isTemporaryFileName(part.view());
    });
}

// Whether one of the folders that the file is in is a file.
bool isBelowFile(const std::string& name, const Names& files) {
    for (size_t end = name.find('/'); end != std::string::npos; end = name.find('/', end + 1))
        if (files.contains(name.substr(0, end))) return true;
    return false;
}

// Names that are one on some system are refused on all.
std::string checkNames(const Vector<ProductPackage::File>& files) {
    Names folded;
    for (const ProductPackage::File& file : files) {
        if (!isPackageName(file.name)) return quoted(file.name) + " is no name of a file in a package";
        if (!folded.insert(file.name.utf8_lowercase()).second) return quoted(file.name) + " is there twice";
    }
    for (const ProductPackage::File& file : files)
        if (isBelowFile(file.name.utf8_lowercase(), folded)) return quoted(file.name) + " is below a file";
    const auto isAfter = [](const auto& a, const auto& b) { return a.name >= b.name; };
    if (std::adjacent_find(files.begin(), files.end(), isAfter) != files.end()) return "its files are in disorder";
    return {};
}

bool isPackageText(const String& text) {
    return !text.empty() && text.size() <= ProductPackage::maximumTextSize && text.validate() &&
           text == text.ascii_fix_remove_controlcodes();
}

bool decodeFile(Item::Iterator& it, ProductPackage::File& out) {
    Item encoded;
    if (!it.asSubItem(encoded)) return false;
    Item::Iterator fields = encoded.getIterator();
    unsigned digestSize = 0;
    if (!fields.asString(out.name) || !fields.asInteger(out.size)) return false;
    const uint8_t* digest = fields.asWeakBuffer(digestSize);
    if (!digest || digestSize != out.digest.size()) return false;
    std::copy_n(digest, digestSize, out.digest.begin());
    return true;
}

bool decodeFiles(const Item& encoded, Vector<ProductPackage::File>& out) {
    Item::Iterator it = encoded.getIterator();
    while (it.hasNextElement()) {
        if (out.size() > ProductPackage::maximumFileCount) return false;
        if (!decodeFile(it, out.emplace_back())) return false;
    }
    return true;
}

} // namespace

PackageManifestScheme::PackageManifestScheme() : PacketScheme(firstID, "ProductPackage", nullptr, "Manifest") {}

PackageContentScheme::PackageContentScheme() : PacketScheme(firstID + 1, "ProductPackage", nullptr, "Content") {}

const PackageManifestScheme& packageManifestScheme() {
    static const PackageManifestScheme scheme;
    return scheme;
}

const PackageContentScheme& packageContentScheme() {
    static const PackageContentScheme scheme;
    return scheme;
}

Item encodeManifest(const ProductPackage::Manifest& manifest) {
    Item files;
    for (const ProductPackage::File& file : manifest.files) {
        Item encoded(file.name);
        encoded.add(file.size);
        encoded.addBuffer(file.digest.data(), static_cast<unsigned>(file.digest.size()));
        files.addItem(encoded);
    }
    Item encoded("form");
    encoded.add(formName);
    encoded.add("product");
    encoded.add(manifest.product);
    encoded.add("version");
    encoded.add(manifest.version);
    encoded.add("files");
    encoded.addItem(files);
    return encoded;
}

std::string decodeManifest(const Item& encoded, ProductPackage::Manifest& out) {
    const char* const form = encoded.kvTryFind("form").asWeakCStr();
    if (!form || std::string_view(form) != formName) return "its form is unknown";
    ProductPackage::Manifest manifest;
    Item files;
    if (!encoded.kvTryFind("product").asString(manifest.product) ||
        !encoded.kvTryFind("version").asString(manifest.version) || !encoded.kvTryFind("files").asSubItem(files) ||
        !decodeFiles(files, manifest.files))
        return "its manifest is damaged";
    if (std::string failure = checkManifest(manifest); !failure.empty()) return failure;
    // There is one encoding, so nothing can hide in the manifest.
    const Item canonical = encodeManifest(manifest);
    const ConstByteSpan expected = canonical.getConstByteSpan(), given = encoded.getConstByteSpan();
    if (!std::equal(expected.begin(), expected.end(), given.begin(), given.end())) return "its manifest is damaged";
    out = std::move(manifest);
    return {};
}

std::string checkManifest(const ProductPackage::Manifest& manifest) {
    if (!isPackageText(manifest.product) || !isPackageText(manifest.version))
        return fmt::format("product and version are not texts of 1 to {} printable characters",
                           ProductPackage::maximumTextSize);
    if (manifest.files.size() > ProductPackage::maximumFileCount)
        return fmt::format("it has more than {} files", ProductPackage::maximumFileCount);
    uint64_t total = 0;
    for (const ProductPackage::File& file : manifest.files) {
        if (file.size > uint64_t{INT64_MAX} - total) return "its files are larger than 8 EiB";
        total += file.size;
    }
    return checkNames(manifest.files);
}

} // namespace kiv::internal
