// Hunts: damage that passes for a store, stores changed by a load that fails, old files lost to a save that fails,
// entries lost at the borders of buffers, lengths that are believed, messages without path or place.
#include "kiv/store/StoreFile.h"
#include "kiv/store/StoreBlob.h"
#include "kiv/store/StoreFileForm.h"
#include "kiv/store/StoreFileReader.h"
#include "tests/data/Items.h"
#include "tests/support/LogLines.h"
#include "tests/support/SystemFaults.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kiv {
namespace {

using namespace support;

template <class T>
std::string bytesOf(T number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

// Bit by bit, as textbooks have it.
uint32_t crc32c(const std::string& bytes) {
    uint32_t sum = 0xFFFFFFFF;
    for (const char byte : bytes) {
        sum ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) sum = sum & 1 ? sum >> 1 ^ 0x82F63B78 : sum >> 1;
    }
    return ~sum;
}

std::string nested(const Item& item) {
    const auto* bytes = reinterpret_cast<const char*>(item.getPlainBytePointer());
    return "\x09" + bytesOf<uint32_t>(item.getPlainSize()) + std::string(bytes, item.getPlainSize());
}

const std::string header = "kivStore" + bytesOf<uint32_t>(1);

// A file of this blob whose trailer is right.
std::string fileOf(const std::string& blob, uint64_t entries) {
    const std::string file = header + blob + "\xFF" + bytesOf(entries);
    return file + bytesOf(crc32c(file));
}

std::string blobOf(Store& store) {
    Buffer blob;
    EXPECT_TRUE(StoreBlob::encode(store, blob));
    return std::string(reinterpret_cast<const char*>(blob.getBytePointer()), blob.getSize());
}

class StoreFiles : public testing::Test {
protected:
    StoreFiles() {
        small.set(Item(), Item());
        small.set("a", 1);
        small.set(list("a", 300), "x");
    }

    // Loads these bytes into a store that has something; it must have that still unless all is right. The message,
    // without what it always begins with.
    std::string load(const std::string& bytes) {
        folder.write("loaded", bytes);
        LogLines log;
        MemoryStore store(true);
        store.set("before", 1);
        const std::string before = blobOf(store);
        const bool isLoaded = StoreFile::load(&store, folder.utf8("loaded"));
        std::string message = log.takeOne();
        if (isLoaded) return message.empty() ? "loaded " + blobOf(store) : message;
        EXPECT_EQ(blobOf(store), before);
        const std::string start = "[STORE] can't load '" + folder.utf8("loaded") + "': ";
        return message.starts_with(start) ? message.substr(start.size()) : "wrong message: " + message;
    }

    // A store is saved and comes back.
    void expectRoundTrip(MemoryStore& store) {
        const std::string path = folder.utf8("round");
        MemoryStore again(false);
        again.set("old", 1);
        EXPECT_TRUE(StoreFile::save(&store, path) && StoreFile::load(&again, path) && blobOf(again) == blobOf(store));
        EXPECT_FALSE(again.isTransactional());
    }

    const TemporaryFolder folder;
    MemoryStore small{true};
};

TEST_F(StoreFiles, HaveTheDescribedBytes) {
    LogLines log;
    EXPECT_TRUE(StoreFile::save(&small, folder.utf8("small")));
    EXPECT_EQ(folder.read("small"), header + nested(Item()) + nested(Item()) + nested("a") + nested(1) +
                                        nested(list("a", 300)) + nested("x") + "\xFF" + bytesOf<uint64_t>(3) +
                                        bytesOf<uint32_t>(0x791A63C8));
    MemoryStore empty(false);
    EXPECT_TRUE(StoreFile::save(&empty, folder.utf8("small")));
    EXPECT_EQ(folder.read("small"), header + "\xFF" + bytesOf<uint64_t>(0) + bytesOf<uint32_t>(0x16F15C79));
    EXPECT_EQ(folder.names(), std::set<std::string>{"small"});
    expectRoundTrip(empty);
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(StoreFiles, ComeBackWhateverTheSizesOfEntries) {
    LogLines log;
    MemoryStore store(true);
    constexpr unsigned buffer = internal::storeFileBuffer;
    for (const unsigned size : {buffer - 100, buffer - 1, buffer, buffer + 1, 3 * buffer + 7, 20 * buffer}) {
        Buffer value(size);
        for (unsigned i = 0; i < size; ++i) value[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
        store.set(list("large", size), Item(value.getConstByteSpan()));
    }
    for (int i = 0; i < 50000; ++i) store.set(list("many", i, i % 7), list(i, "value"));
    store.set(list(std::string(65534, 'k')), 1); // the largest clean key
    expectRoundTrip(store);

    uint64_t saved = 0, loaded = 0, calls = 0;
    const auto follow = [&calls](uint64_t& last) {
        return [&calls, &last](uint64_t done, uint64_t total) {
            EXPECT_TRUE(done > std::exchange(last, done) && done <= total);
            ++calls;
        };
    };
    EXPECT_TRUE(StoreFile::save(&store, folder.utf8("round"), follow(saved)));
    EXPECT_TRUE(StoreFile::load(&store, folder.utf8("round"), follow(loaded)));
    EXPECT_EQ(saved, std::filesystem::file_size(folder.path("round")));
    EXPECT_EQ(loaded, saved);
    EXPECT_GT(calls, 20u);
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(StoreFiles, AreRefusedWhenAnyByteIsMissingOrChanged) {
    const std::string good = fileOf(blobOf(small), 3);
    EXPECT_EQ(load(good), "loaded " + blobOf(small));
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(load(good.substr(0, size)),
                  "damaged from offset " + std::to_string(size) + " on: the file ends too early");
    }
    for (size_t at = 0; at < good.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF}) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            EXPECT_TRUE(load(bytes).starts_with("damaged from offset ")) << at << " flipped by " << flip;
        }
    }
}

TEST_F(StoreFiles, TellWhereAndWhyTheyAreDamaged) {
    const auto refused = [this](const std::string& bytes, size_t offset, const std::string& reason) {
        EXPECT_EQ(load(bytes), "damaged from offset " + std::to_string(offset) + " on: " + reason);
    };
    const std::string a = nested("a") + nested(1), b = nested("b") + nested(2), good = fileOf(a + b, 2);
    refused("kivStorE" + good.substr(8), 0, "no store file");
    refused("kivStore" + bytesOf<uint32_t>(2) + good.substr(12), 8, "version 2 of the format, which is unknown here");
    refused(fileOf(b + a, 2), 12 + b.size() + 5, "this key is not behind the one before");
    refused(fileOf(a + a, 2), 12 + a.size() + 5, "this key is not behind the one before");
    refused(fileOf(a + nested(Item::WildcardMode()) + nested(1), 2), 12 + a.size() + 5, "this is no clean key");
    refused(fileOf(a + "\x03" + b, 2), 12 + a.size(), "no key or value begins here");
    refused(fileOf(a + nested("b"), 2), 12 + a.size() + 8, "no key or value begins here");
    refused(fileOf(a + b, 3), 12 + a.size() + b.size() + 1, "the file tells of 3 entries, 2 are there");
    refused(good.substr(0, good.size() - 1) + static_cast<char>(good.back() ^ 1), good.size() - 4,
            "the checksum does not match");
    refused(good + "x", good.size(), "there is more behind the end");
    refused(good + good, good.size(), "there is more behind the end");
    // Lengths are not believed: neither memory nor time is spent on them.
    const std::string huge = header + a + "\x09" + bytesOf<uint32_t>(0x7FFFFFFF) + "123";
    refused(huge, huge.size(), "the file ends too early");
    refused(header + "\x09" + bytesOf<uint32_t>(0x80000000) + "123", 12, "no key or value begins here");
    refused(header + "\x09" + bytesOf<uint32_t>(0xFFFFFFFB) + "123", 12, "no key or value begins here");
}

TEST_F(StoreFiles, AreReadUpToTheDamage) {
    folder.write("cut", fileOf(blobOf(small), 3).substr(0, 60));
    StoreFileReader reader(folder.utf8("cut"));
    Item key, value;
    EXPECT_TRUE(reader.read(key, value) && reader.read(key, value) && reader.read(key, value));
    EXPECT_EQ(key, list("a", 300));
    EXPECT_EQ(value, Item("x"));
    EXPECT_FALSE(reader.read(key, value) || reader.read(key, value) || reader.isWhole());
    EXPECT_TRUE(reader.getNumberOfEntries() == 3u && reader.getOffset() == 60u);
    EXPECT_FALSE(StoreFileReader(folder.utf8("nowhere")).isOpen() || StoreFileReader(folder.utf8(".")).isOpen());
}

TEST_F(StoreFiles, ASaveThatFailsLeavesTheOldFile) {
    const std::string path = folder.utf8("file"), start = "[STORE] can't save '" + path + "': ";
    ASSERT_TRUE(StoreFile::save(&small, path));
    const std::string old = folder.read("file");
    LogLines log;
    const auto refuses = [&](Store* store, const std::string& reason) {
        EXPECT_FALSE(StoreFile::save(store, path));
        const std::string message = log.takeOne();
        EXPECT_EQ(message.substr(0, start.size() + reason.size()), start + reason) << message;
        EXPECT_EQ(folder.read("file"), old);
        EXPECT_EQ(folder.names(), std::set<std::string>{"file"});
    };
    MemoryStore unclean(false);
    for (int i = 0; i < 50000; ++i) unclean.set(i, "value");
    const Item key = list("z", plain("\x08\x01\xFE"));
    unclean.set(key, 1);
    refuses(&unclean, "the key {<STR:z><ITEM:{<INT:1><TRAIL:1>}>} is not clean");
    refuses(nullptr, "there is no store");
    EXPECT_FALSE(StoreFile::save(&small, folder.utf8("nowhere/file")));
    EXPECT_NE(log.takeOne().find("nowhere/file': can't be created: "), std::string::npos);

    unclean.remove(key, key);
    const FileSizeLimit limit(300000);
    if (limit.isInForce()) refuses(&unclean, "can't be written: ");
}

TEST_F(StoreFiles, ALoadThatFailsLeavesTheStore) {
    LogLines log;
    MemoryStore store(true);
    store.begin();
    ASSERT_TRUE(StoreFile::save(&small, folder.utf8("file")));
    EXPECT_FALSE(StoreFile::load(&store, folder.utf8("file")));
    EXPECT_EQ(log.takeOne(), "[STORE] can't load '" + folder.utf8("file") + "': the store has an open transaction");
    store.rollback();
    EXPECT_TRUE(StoreFile::load(&store, folder.utf8("file")) && store.isTransactional());
    EXPECT_EQ(store.get("a")->getStore(), &store);
    EXPECT_FALSE(StoreFile::load(&store, folder.utf8("nowhere")));
    EXPECT_EQ(log.takeOne(), "[STORE] can't load '" + folder.utf8("nowhere") + "': it can't be opened");
    EXPECT_EQ(blobOf(store), blobOf(small));
}

} // namespace
} // namespace kiv
