#pragma once

#include "kiv/core/Sha256.h"
#include "kiv/core/Signature.h"
#include "kiv/updates/ProductPackage.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace kiv::internal {

// Whether a file is the package that was announced. One thread runs it, any may stop it.
class UploadCheck {
public:
    UploadCheck(std::string path, uint64_t size, const Sha256::Digest& digest, const Signature::PublicKey& key)
        : m_path(std::move(path)), m_size(size), m_digest(digest), m_key(key) {}

    const std::string& getPath() const { return m_path; }
    uint64_t getSize() const { return m_size; }
    // What is wrong, a constant; null when it is good.
    const char* run();
    // Once it has been found good.
    const ProductPackage::Manifest& getManifest() const { return m_manifest; }
    // The result means nothing then.
    void stop() { m_isStopped = true; }
    bool isStopped() const { return m_isStopped; }

private:
    bool hasDigest() const;

    const std::string m_path;
    const uint64_t m_size;
    const Sha256::Digest m_digest;
    const Signature::PublicKey m_key;
    ProductPackage::Manifest m_manifest;
    std::atomic<bool> m_isStopped{false};
};

} // namespace kiv::internal
