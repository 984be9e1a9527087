// Hunts: lengths that are believed, pairs lost before damage, keys let in that break subtrees, registry values of
// another type taken for stores, messages where there shall be none.
#include "kiv/store/StoreBlob.h"
#include "kiv/platform/Registry.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/store/Trees.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/SystemFaults.h"

#include <gtest/gtest.h>

namespace kiv {
namespace {

using namespace support;

// Three entries, made by hand from the description of the form.
const std::string golden("\x09\0\0\0\0"
                         "\x09\0\0\0\0"
                         "\x09\x03\0\0\0\x03"
                         "a\0"
                         "\x09\x02\0\0\0\x08\x01"
                         "\x09\x06\0\0\0\x03"
                         "a\0\x07\x2C\x01"
                         "\x09\x03\0\0\0\x03"
                         "x\0",
                         10 + 15 + 19);

ConstByteSpan spanOf(const std::string& bytes) {
    return ConstByteSpan(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<unsigned>(bytes.size()));
}

Buffer blobOf(Store& store) {
    Buffer blob(spanOf("left over"));
    EXPECT_TRUE(StoreBlob::encode(store, blob));
    return blob;
}

void fill(Store& store) {
    store.set(list("a", 300), "x");
    store.set(Item(), Item());
    store.set("a", 1);
}

TEST(StoreBlob, HasTheDescribedBytes) {
    MemoryStore store(false), again(false);
    EXPECT_TRUE(blobOf(store).empty());
    fill(store);
    EXPECT_EQ(blobOf(store), Buffer(spanOf(golden)));
    EXPECT_TRUE(StoreBlob::decode(spanOf(golden), again) && StoreBlob::decode(ConstByteSpan(), again));
    EXPECT_EQ(blobOf(again), Buffer(spanOf(golden)));
}

TEST(StoreBlob, OverwritesAndKeepsOtherEntries) {
    MemoryStore store(false);
    store.set("a", "old"), store.set("b", "kept");
    EXPECT_TRUE(StoreBlob::decode(spanOf(golden), store));
    EXPECT_TRUE(*store.get("a") == Item(1) && *store.get("b") == Item("kept"));
}

TEST(StoreBlob, KeepsThePairsBeforeDamage) {
    const auto pairsOf = [](const std::string& bytes, bool expected) {
        MemoryStore store(false);
        EXPECT_EQ(StoreBlob::decode(spanOf(bytes), store), expected);
        return contentOf(store).size();
    };
    for (size_t size = 0; size <= golden.size(); ++size) {
        const size_t pairs = (size >= 10) + (size >= 25) + (size >= 44);
        EXPECT_EQ(pairsOf(golden.substr(0, size), size == 0 || size == 10 || size == 25 || size == 44), pairs) << size;
    }
    const auto changed = [](size_t at, const std::string& bytes) {
        return std::string(golden).replace(at, bytes.size(), bytes);
    };
    EXPECT_EQ(pairsOf(changed(10, "\x05"), false), 1u); // another type than a nested item
    EXPECT_EQ(pairsOf(changed(18, "\x04"), false), 1u);
    EXPECT_EQ(pairsOf(changed(26, "\xFB\xFF\xFF\xFF"), false), 2u); // with what stands before it, 2^32
    EXPECT_EQ(pairsOf(changed(26, "\xFF\xFF\xFF\x7F"), false), 2u);
    EXPECT_EQ(pairsOf(changed(30, "\x0F"), false), 2u);                       // a key that is no key
    EXPECT_EQ(pairsOf(changed(19, std::string("\x13\0\0\0", 4)), false), 2u); // a value that takes the next key
    EXPECT_EQ(pairsOf(golden + "\x0B", false), 3u);
}

class Registry : public testing::Test {
protected:
    ~Registry() override { support::deleteRegistryKey(path); }

    // One for each test: they may run at the same time.
    const std::string m_path =
        std::string("Software\\kivCoreTests-") + testing::UnitTest::GetInstance()->current_test_info()->name();
    const char* const path = m_path.c_str();
};

TEST_F(Registry, SavesAndLoads) {
    MemoryStore store(false), again(false);
    fill(store);
    Buffer megabyte(1 << 20);
    for (unsigned i = 0; i < megabyte.getSize(); ++i) megabyte[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
    store.set("large", Item(megabyte.getConstByteSpan()));
    const String name("n\u00e4me \u4e16");
    OutputCapture output;
    const bool isSaved = MemoryStore::saveToWindowsRegistry(&store, path, name);
    const bool isLoaded = MemoryStore::loadFromWindowsRegistry(&again, path, name);
    EXPECT_EQ(output.take(), "");
    EXPECT_TRUE(isSaved == hasRegistry() && isLoaded == hasRegistry());
    EXPECT_EQ(contentOf(again).size(), isLoaded ? 4u : 0u);
    if (!support::hasRegistry()) GTEST_SKIP() << "this system has no registry";
    EXPECT_EQ(blobOf(again), blobOf(store));
}

TEST_F(Registry, RefusesWhatIsNoStore) {
    if (!support::hasRegistry()) GTEST_SKIP() << "this system has no registry";
    MemoryStore store(false), empty(false);
    fill(store);
    const auto before = contentOf(store);
    OutputCapture output;
    EXPECT_FALSE(MemoryStore::loadFromWindowsRegistry(&store, path, "store"));
    EXPECT_TRUE(support::writeRegistryText(path, "text") && MemoryStore::saveToWindowsRegistry(&empty, path, "empty"));
    for (const char* name : {"text", "missing", "empty", "\xFF"})
        EXPECT_FALSE(MemoryStore::loadFromWindowsRegistry(&store, path, name)) << name;
    EXPECT_FALSE(MemoryStore::saveToWindowsRegistry(&store, path, String("a\0b", 3)));
    EXPECT_TRUE(!MemoryStore::saveToWindowsRegistry(nullptr, path, "a") && contentOf(store) == before);
    // Half a blob: the pairs before the damage are there.
    EXPECT_TRUE(platform::writeRegistryValue(path, "half", golden.data(), 30));
    MemoryStore half(false);
    EXPECT_TRUE(!MemoryStore::loadFromWindowsRegistry(&half, path, "half") && contentOf(half).size() == 2u);
    EXPECT_EQ(output.take(), "");
}

} // namespace
} // namespace kiv
