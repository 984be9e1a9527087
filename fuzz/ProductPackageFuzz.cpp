#include "Silence.h"

#include "kiv/files/Directory.h"
#include "kiv/platform/File.h"
#include "kiv/updates/ProductPackage.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

using namespace kiv;

namespace {

const std::string folder =
    (std::filesystem::temp_directory_path() / ("kiv-package-" + std::to_string(std::random_device()()))).string();
const Signature::SecretKey secret{};
const Signature::PublicKey key = Signature::getPublicKey(secret);

// The input with the right signature where there is room for one: else everything would end there.
std::string signedPackage(const uint8_t* data, size_t size) {
    constexpr size_t signature = 12, count = signature + 64, manifest = count + 4;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (size < manifest) return bytes;
    uint32_t length;
    std::memcpy(&length, data + count, sizeof length);
    if (length > size - manifest) return bytes;
    const Signature::Bytes made = Signature::sign({data + manifest, length}, secret);
    return bytes.replace(signature, made.size(), reinterpret_cast<const char*>(made.data()), made.size());
}

uint64_t sizeOfAll(const std::string& path) {
    uint64_t total = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        if (entry.is_regular_file()) total += entry.file_size();
    return total;
}

} // namespace

// The input is a package. It is unpacked if it can be verified, then with all that its manifest tells of; else nothing
// is left. Nothing is written outside the folder.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::filesystem::create_directories(folder);
    const std::string path = folder + "/package", to = folder + "/to", bytes = signedPackage(data, size);
    if (!platform::writeWholeFile(path, bytes.data(), bytes.size())) std::abort();
    ProductPackage::Manifest manifest;
    const bool isSigned = ProductPackage::readManifest(path, key, manifest), isGood = ProductPackage::verify(path, key);
    if ((isGood && !isSigned) || ProductPackage::unpack(path, to, key) != isGood) std::abort();
    if (isGood != Directory::exists(to) || (isGood && sizeOfAll(to) != manifest.getTotalSize())) std::abort();
    std::filesystem::remove(path);
    std::filesystem::remove_all(to);
    if (!std::filesystem::is_empty(folder)) std::abort();
    return 0;
}
