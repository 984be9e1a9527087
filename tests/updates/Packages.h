#pragma once

#include "kiv/data/FilePacketWriter.h"
#include "kiv/updates/ProductPackage.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace kiv {

// Product packages as tests make them: signed with one key, whole or put together by hand.
class Packages {
public:
    const Signature::SecretKey secret = Signature::createSecretKey();
    const Signature::PublicKey key = Signature::getPublicKey(secret);
    support::TemporaryFolder folder;

    std::string path(const std::string& name) const { return folder.utf8(name); }

    // The package "small": files of 0, 6 and 9 bytes.
    void writeSmall() const {
        std::filesystem::create_directories(folder.path("from/bin/\u00fc"));
        folder.write("from/empty", "");
        folder.write("from/bin/tool", "a tool");
        folder.write("from/bin/\u00fc/z", std::string("1\0\r\n\xFF\n345", 9));
        ASSERT_TRUE(ProductPackage::create(path("small"), path("from"), "Viewer", "1.2", secret));
    }

    static Item file(const std::string& name, long long size, const std::string& contents) {
        Sha256 hash;
        hash.add(contents.data(), contents.size());
        const Sha256::Digest digest = hash.finish();
        Item item(name.c_str());
        item.add(size);
        item.addBuffer(digest.data(), static_cast<unsigned>(digest.size()));
        return item;
    }
    static Item manifest(const Item& files, const char* product = "p", const char* form = "kivCore product package 1") {
        Item item("form");
        item.add(form);
        item.add("product");
        item.add(product);
        item.add("version");
        item.add("1");
        item.add("files");
        item.addItem(files);
        return item;
    }
    // By doc/formats/product-package.md.
    void writeByHand(const std::string& name, const Item& manifest, const std::vector<std::string>& pieces) const {
        FilePacketWriter writer(path(name).c_str());
        const Signature::Bytes signature = Signature::sign(manifest.getConstByteSpan(), secret);
        const std::string encoded(reinterpret_cast<const char*>(manifest.getPlainBytePointer()),
                                  manifest.getPlainSize());
        write(writer, 21120, std::string(signature.begin(), signature.end()) + counted(encoded));
        for (const std::string& piece : pieces) write(writer, 21121, counted(piece));
        ASSERT_TRUE(writer.close());
    }
    static std::string counted(const std::string& bytes) {
        std::string text(4, '\0');
        for (size_t i = 0; i < 4; ++i) text[i] = static_cast<char>(bytes.size() >> 8 * i);
        return text + bytes;
    }
    static void write(FilePacketWriter& writer, short id, const std::string& payload) {
        Packet packet(static_cast<unsigned>(payload.size()));
        std::memcpy(packet.getPayloadPointer(), payload.data(), payload.size());
        packet.rawHeader() = {0, -1, id, 0};
        writer.write(&packet);
    }
};

} // namespace kiv
