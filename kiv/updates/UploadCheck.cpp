#include "kiv/updates/UploadCheck.h"

#include "kiv/core/Buffer.h"
#include "kiv/files/File.h"
#include "kiv/platform/FileStream.h"

#include <memory>

namespace kiv::internal {

bool UploadCheck::hasDigest() const {
    const auto close = [](std::FILE* stream) { std::fclose(stream); };
    const std::unique_ptr<std::FILE, decltype(close)> stream(
        platform::openFile(m_path.c_str(), platform::FileMode::Read), close);
    if (!stream) return false;
    const Buffer piece(1 << 18);
    Sha256 hash;
    for (size_t size = piece.getSize(); size == piece.getSize() && !m_isStopped;) {
        size = std::fread(piece.getBytePointer(), 1, piece.getSize(), stream.get());
        hash.add(piece.getBytePointer(), size);
    }
    return hash.finish() == m_digest;
}

const char* UploadCheck::run() {
    if (File::getSize(m_path) != m_size) return "the update package has another size than was announced";
    if (!hasDigest()) return "the update package has another checksum than was announced";
    const auto goOn = [this](uint64_t, uint64_t) { return !m_isStopped; };
    const bool isGood =
        ProductPackage::readManifest(m_path, m_key, m_manifest) && ProductPackage::verify(m_path, m_key, goOn);
    return isGood ? nullptr : "the update package is not valid";
}

} // namespace kiv::internal
