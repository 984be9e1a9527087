#include "tests/support/LogLines.h"
#include "tests/support/SystemFaults.h"
#include "tests/updates/Packages.h"

#include <gmock/gmock.h>

#include <set>

namespace kiv {
namespace {

using support::LogLines;
using testing::HasSubstr;

class ProductPackageTest : public testing::Test, public Packages {
protected:
    // Not good for anything, and nothing is left of the attempts; the reason.
    std::string refusal(const std::string& name) {
        const std::set<std::string> before = folder.names();
        LogLines lines;
        EXPECT_FALSE(ProductPackage::verify(path(name), key)) << name;
        std::string reason = lines.take().back();
        EXPECT_FALSE(ProductPackage::unpack(path(name), path("to"), key)) << name;
        EXPECT_EQ(folder.names(), before);
        return reason.substr(reason.rfind("': ") + 3);
    }
    std::string refusalOf(const Item& manifest, const std::vector<std::string>& pieces = {}) {
        writeByHand("hand", manifest, pieces);
        return refusal("hand");
    }
};

TEST_F(ProductPackageTest, UnpacksWhatWasPacked) {
    writeSmall();
    const std::string large(3 * 1048576 + 7, 'x');
    folder.write("from/large", large);
    uint64_t last = 0;
    const auto watch = [&last](uint64_t done, uint64_t total) { return last = done, done <= total; };
    ASSERT_TRUE(ProductPackage::create(path("package"), path("from/"), "Viewer", "1.2", secret, watch));
    EXPECT_EQ(last, 2 * (large.size() + 15));
    ASSERT_TRUE(ProductPackage::verify(path("package"), key, watch));
    EXPECT_EQ(last, large.size() + 15);

    ProductPackage::Manifest manifest;
    ASSERT_TRUE(ProductPackage::readManifest(path("package"), key, manifest));
    EXPECT_EQ(manifest.product + " " + manifest.version, "Viewer 1.2");
    std::string names;
    for (const auto& file : manifest.files) names += file.name.to_std_string() + " " + std::to_string(file.size) + ", ";
    EXPECT_EQ(names, "bin/tool 6, bin/\u00fc/z 9, empty 0, large 3145735, ");

    ASSERT_TRUE(ProductPackage::unpack(path("package"), path("to/"), key));
    for (const auto& file : manifest.files)
        EXPECT_TRUE(folder.read("to/" + file.name) == folder.read("from/" + file.name)) << file.name;
    EXPECT_EQ(folder.names(), (std::set<std::string>{"from", "package", "small", "to"}));

    // What is there stays.
    LogLines lines;
    folder.write("to/empty", "mine");
    EXPECT_FALSE(ProductPackage::unpack(path("package"), path("to"), key));
    EXPECT_THAT(lines.takeOne(), HasSubstr("there is something of the name"));
    EXPECT_EQ(folder.read("to/empty"), "mine");
}

TEST_F(ProductPackageTest, EveryByteCounts) {
    writeSmall();
    const std::string good = folder.read("small");
    EXPECT_TRUE(ProductPackage::verify(path("small"), key));
    for (size_t at = 0; at < good.size(); ++at) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << at % 8));
        folder.write("flipped", bytes);
        refusal("flipped");
        folder.write("short", good.substr(0, at));
        refusal("short");
    }
    folder.write("long", good + good.substr(good.size() - 22));
    EXPECT_EQ(refusal("long"), "there is more behind its end at offset " + std::to_string(good.size()));
    folder.write("long", good + '\0');
    EXPECT_THAT(refusal("long"), HasSubstr("there is more behind its end"));
    EXPECT_EQ(refusal("nowhere"), "it can't be opened");

    LogLines lines;
    const Signature::PublicKey other = Signature::getPublicKey(Signature::createSecretKey());
    ProductPackage::Manifest manifest;
    EXPECT_FALSE(ProductPackage::readManifest(path("small"), other, manifest));
    EXPECT_THAT(lines.takeOne(), HasSubstr("it is not signed with this key"));
    EXPECT_TRUE(manifest.files.empty());
}

TEST_F(ProductPackageTest, RefusesSignedNonsense) {
    const auto files = [](const std::vector<std::string>& names) {
        Item items;
        for (const std::string& name : names) items.addItem(file(name, 0, ""));
        return manifest(items);
    };
    writeByHand("hand", files({"a", "a.b/c", "b/c"}), {});
    EXPECT_TRUE(ProductPackage::verify(path("hand"), key));

    const std::string part(241, 'n');
    std::string deep = "d";
    while (deep.size() < 1024) deep += "/d";
    for (const std::string& name :
         {std::string(), std::string(".."), std::string("../to2"), std::string("/tmp/x"), std::string("a/../../b"),
          std::string("a//b"), std::string("a/"), std::string("C:x"), std::string("..\\x"), std::string("nul.txt"),
          std::string("a."), std::string("a\nb"), std::string("a.new"), std::string("A.NEW7/b"), std::string("\xC3"),
          part, deep})
        EXPECT_THAT(refusalOf(files({name})), HasSubstr("is no name of a file in a package")) << name;
    EXPECT_EQ(refusalOf(files({"A", "a"})), "\"a\" is there twice");
    EXPECT_EQ(refusalOf(files({"\u00c4", "\u00e4"})), "\"\u00e4\" is there twice");
    EXPECT_EQ(refusalOf(files({"a", "a/b"})), "\"a/b\" is below a file");
    EXPECT_EQ(refusalOf(files({"A/b/c", "a/B"})), "\"A/b/c\" is below a file");
    EXPECT_EQ(refusalOf(files({"b", "a"})), "its files are in disorder");

    for (const char* text : {"", "a\nb", "[\x1B"})
        EXPECT_THAT(refusalOf(manifest({}, text)), HasSubstr("printable characters"));
    EXPECT_EQ(refusalOf(manifest({}, "p", "kivCore product package 2")), "its form is unknown");
    EXPECT_EQ(refusalOf(Item()), "its form is unknown");
    Item more = manifest({});
    more.add("more");
    more.add(1);
    for (const Item& damaged : {more, manifest(file("a", 0, ""))})
        EXPECT_EQ(refusalOf(damaged), "its manifest is damaged");
    Item sizes;
    for (const char* name : {"a", "b"}) sizes.addItem(file(name, INT64_MAX, ""));
    EXPECT_EQ(refusalOf(manifest(sizes)), "its files are larger than 8 EiB");
    Item negative;
    negative.addItem(file("a", -1, ""));
    EXPECT_EQ(refusalOf(manifest(negative)), "its files are larger than 8 EiB");
}

TEST_F(ProductPackageTest, ContentsFollowTheManifest) {
    Item items;
    items.addItem(file("a", 5, "hello"));
    items.addItem(file("b", 3, "you"));
    const Item two = manifest(items);
    writeByHand("hand", two, {"hel", "lo", "you"});
    EXPECT_TRUE(ProductPackage::verify(path("hand"), key));
    EXPECT_THAT(refusalOf(two, {"hello", "", "you"}), HasSubstr("not of the size that is left"));
    EXPECT_THAT(refusalOf(two, {"helloyou"}), HasSubstr("not of the size that is left"));
    EXPECT_THAT(refusalOf(two, {"hello", "yo"}), HasSubstr("there is no record of a package at offset"));
    EXPECT_EQ(refusalOf(two, {"youhe", "llo"}), "'a' is damaged");
}

TEST_F(ProductPackageTest, FailuresLeaveWhatWasThere) {
    writeSmall();
    folder.write("package", "old");
    const std::set<std::string> before = folder.names();
    LogLines lines;
    const auto stop = [](uint64_t done, uint64_t) { return done < 20; };
    EXPECT_FALSE(ProductPackage::create(path("package"), path("from"), "p", "1", secret, stop));
    EXPECT_THAT(lines.takeOne(), HasSubstr("it was stopped"));
    EXPECT_FALSE(ProductPackage::create(path("package"), path("nowhere"), "p", "1", secret));
    EXPECT_THAT(lines.takeOne(), HasSubstr("can't be read"));
    EXPECT_FALSE(ProductPackage::create(path("package"), path("from"), "", "1", secret));
    EXPECT_THAT(lines.takeOne(), HasSubstr("printable characters"));
    EXPECT_FALSE(
        ProductPackage::unpack(path("small"), path("to"), key, [](uint64_t done, uint64_t) { return done < 10; }));
    EXPECT_THAT(lines.takeOne(), HasSubstr("it was stopped"));
    if (const support::FileSizeLimit limit(8); limit.isInForce()) {
        EXPECT_FALSE(ProductPackage::create(path("package"), path("from"), "p", "1", secret));
        EXPECT_FALSE(ProductPackage::unpack(path("small"), path("to"), key));
    }
    EXPECT_EQ(folder.names(), before);
    EXPECT_EQ(folder.read("package"), "old");

    std::error_code failure;
    std::filesystem::create_symlink(folder.path("package"), folder.path("from/link"), failure);
    if (failure) return; // not everybody may
    lines.take();
    EXPECT_FALSE(ProductPackage::create(path("package"), path("from"), "p", "1", secret));
    EXPECT_THAT(lines.takeOne(), HasSubstr("'link' is a link or no ordinary file"));
}

} // namespace
} // namespace kiv
