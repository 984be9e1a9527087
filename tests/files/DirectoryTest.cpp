// Hunts: links that are followed where they must not be, names that are not ASCII or too long for plain paths, orders
// and digests that differ between systems, changes that a digest does not see, names that are none.
#include "kiv/files/Directory.h"
#include "kiv/files/File.h"
#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <gtest/gtest.h>

namespace kiv {
namespace {

class Directories : public testing::Test {
protected:
    std::string path(const std::string& name) const { return m_folder.utf8(name); }
    void write(const std::string& name, const std::string& text) const {
        EXPECT_TRUE(String(text).saveToFile(path(name))) << name;
    }
    std::string read(const std::string& name) const {
        String text;
        return text.loadFromFile(path(name), true) ? std::string(text) : "none";
    }
    // False where links can't be made.
    bool link(const std::filesystem::path& to, const std::string& name) const {
        std::error_code error;
        std::filesystem::create_symlink(to, m_folder.path(name), error);
        return !error;
    }
    std::string listed(const std::string& name) const {
        Vector<Directory::Entry> entries(1);
        std::string text;
        EXPECT_TRUE(Directory::list(path(name), entries)) << name;
        for (const auto& [entry, isDirectory, isLink, size] : entries)
            text += std::string(entry) + (isDirectory ? "/" : "") + (isLink ? "@" : "") + std::to_string(size) + " ";
        return text;
    }

    const support::TemporaryFolder m_folder;
};

TEST_F(Directories, ListInTheOrderOfTheBytes) {
    for (const char* name : {"b", "Z", "\xC3\xA4", "a b", "\xF0\x9F\x98\x80"}) write(name, name);
    EXPECT_TRUE(Directory::create(path("\xEF\xBC\x81/below/")));
    EXPECT_EQ(listed(""), "Z1 a b3 b1 \xC3\xA4"
                          "2 \xEF\xBC\x81/0 \xF0\x9F\x98\x80"
                          "4 ");
    EXPECT_EQ(listed("\xEF\xBC\x81/below"), "");
    if (!link(m_folder.path("b"), "l1")) GTEST_SKIP() << "no links can be made here";
    EXPECT_TRUE(link(m_folder.path(""), "l2") && link("nowhere", "l3"));
    EXPECT_EQ(listed("l2").substr(0, 34), "Z1 a b3 b1 l1@1 l2/@0 l3@0 \xC3\xA4"
                                          "2 \xEF\xBC\x81");
}

// One path of more than 260 characters, and of names that are not ASCII, through everything there is.
TEST_F(Directories, LongNamesWork) {
    std::string deep = "\xE6\x97\xA5";
    while (deep.size() < 600) deep += "/\xC3\xA4" + std::string(58, 'n');
    const std::string file = deep + "/\xD0\xB6";
    EXPECT_FALSE(Directory::exists(path(deep)));
    EXPECT_TRUE(Directory::create(path(deep)) && Directory::create(path(deep + "/")) && Directory::exists(path(deep)));
    write(file, "text");
    EXPECT_EQ(listed(deep), "\xD0\xB6"
                            "4 ");
    EXPECT_TRUE(File::exists(path(file)) && File::getSize(path(file)) == 4u);
    EXPECT_TRUE(File::copy(path(file), path(deep + "/copy")));
    EXPECT_TRUE(File::rename(path(deep + "/copy"), path(file)));
    EXPECT_TRUE(Directory::rename(path(deep), path(deep + "x")) && Directory::getDirectoryHash(path(deep + "x")));
    EXPECT_FALSE(Directory::remove(path(deep + "x")));
    EXPECT_EQ(read(deep + "x/\xD0\xB6"), "text");
    EXPECT_TRUE(File::remove(path(deep + "x/\xD0\xB6")) && Directory::remove(path(deep + "x")));
    EXPECT_TRUE(Directory::create(path(deep)) && Directory::removeTree(path("\xE6\x97\xA5")));
    EXPECT_EQ(listed(""), "");
}

TEST_F(Directories, TreesGoWithoutWhatLinksLeadTo) {
    EXPECT_TRUE(Directory::create(path("tree/a/b")) && Directory::create(path("tree/c")) &&
                Directory::create(path("kept")));
    write("kept/file", "kept"), write("tree/a/b/file", "x"), write("tree/protected", "x");
    std::filesystem::permissions(m_folder.path("tree/protected"), std::filesystem::perms::owner_read);
    const bool hasLinks = link(m_folder.path("kept"), "tree/a/link") && link(m_folder.path("kept"), "link");
    if (hasLinks) {
        for (const char* name : {"link", "link/"})
            EXPECT_FALSE(Directory::removeTree(path(name)) || Directory::remove(path(name))) << name;
        EXPECT_TRUE(Directory::exists(path("link")) && File::remove(path("link/")));
    }
    EXPECT_TRUE(Directory::removeTree(path("tree/")));
    EXPECT_EQ(listed("") + read("kept/file"), "kept/0 kept");
    for (const char* name : {"tree", "kept/file", "kept/..", "kept/.", "kept/./"})
        EXPECT_FALSE(Directory::removeTree(path(name))) << name;
    for (const char* name : {"", ".", "..", "../..", "/", "//", "Z:", "Z:/", "Z:\\"})
        EXPECT_FALSE(Directory::removeTree(name)) << name;
    EXPECT_EQ(read("kept/file"), "kept");
}

TEST_F(Directories, KeepWhatIsInTheWay) {
    write("file", "file");
    EXPECT_TRUE(Directory::create(path("a/a")) && Directory::create(path("b")));
    EXPECT_FALSE(Directory::create(path("file")) || Directory::create(path("file/x")) ||
                 Directory::exists(path("file")));
    EXPECT_FALSE(Directory::rename(path("a"), path("b")) || Directory::rename(path("a"), path("file")));
    EXPECT_FALSE(Directory::rename(path("a"), path("a/b")) || Directory::rename(path("file"), path("f")));
    EXPECT_FALSE(File::rename(path("file"), path("b")) || File::rename(path("a"), path("f")));
    EXPECT_FALSE(File::copy(path("file"), path("b")) || File::copy(path("a"), path("f")));
    EXPECT_FALSE(Directory::remove(path("a")) || Directory::remove(path("file")) || File::remove(path("b")));
    EXPECT_TRUE(Directory::rename(path("b"), path("c/")));
    EXPECT_EQ(listed("") + listed("a") + listed("c"), "a/0 c/0 file4 a/0 ");
}

TEST_F(Directories, DigestsSeeEveryChange) {
    const auto hash = [&] { return Directory::getDirectoryHash(path("")); };
    EXPECT_EQ(hash(), 0u);
    EXPECT_TRUE(Directory::create(path("sub/empty")));
    write("main.sq", "print(1)\n"), write("sub/\xC3\xA4.sq", std::string(200000, 'x')), write("sub/none", "");
    const std::optional<uint32_t> before = hash();
    EXPECT_EQ(before, 0xDCA49CC3u); // on every system
    const auto sees = [&](const char* what, const std::function<void()>& change, const std::function<void()>& back) {
        change();
        EXPECT_TRUE(hash() && hash() != before) << what;
        back();
        EXPECT_EQ(hash(), before) << what;
    };
    const auto renames = [&](const std::string& a, const std::string& b) {
        const auto rename = [&](const std::string& from, const std::string& to) {
            EXPECT_TRUE(File::rename(path(from), path(to)) || Directory::rename(path(from), path(to))) << from << to;
        };
        sees(
            b.c_str(), [&] { rename(a, b); }, [&] { rename(b, a); });
    };
    const auto writes = [&](const std::string& name, const std::string& text) {
        const std::string old = read(name);
        sees(
            text.c_str(), [&] { write(name, text); }, [&] { write(name, old); });
    };
    writes("main.sq", "print(2)\n"), writes("main.sq", ""), writes("main.sq", "print(1)\r\n"), writes("sub/none", "x");
    writes("sub/\xC3\xA4.sq", std::string(199999, 'x') + 'y'), writes("sub/\xC3\xA4.sq", std::string(200001, 'x'));
    renames("main.sq", "main.sr"), renames("sub/none", "sub/n"), renames("sub/none", "none"), renames("sub", "sux");
    renames("sub/empty", "empty"), renames("sub/none", "sub/empty/none");
    sees(
        "gone", [&] { Directory::remove(path("sub/empty")); }, [&] { Directory::create(path("sub/empty")); });
    sees(
        "new", [&] { write("sub/empty/x", ""); }, [&] { File::remove(path("sub/empty/x")); });
    sees(
        "file", [&] { Directory::remove(path("sub/empty")), write("sub/empty", ""); },
        [&] { File::remove(path("sub/empty")), Directory::create(path("sub/empty")); });
}

TEST_F(Directories, DigestsEnd) {
    const auto hash = [&] { return Directory::getDirectoryHash(path("")); };
    std::string deep = "1";
    for (int i = 2; i < 64; ++i) deep += "/1";
    EXPECT_TRUE(Directory::create(path(deep)) && hash());
    EXPECT_TRUE(Directory::create(path(deep + "/1")) && !hash());
    EXPECT_TRUE(Directory::removeTree(path("1")));
    if (!link(m_folder.path(""), "all")) GTEST_SKIP() << "no links can be made here";
    EXPECT_TRUE(link("/dev/zero", "zero") && link("none", "nowhere"));
    const std::optional<uint32_t> links = hash();
    write("none", "text");
    const std::optional<uint32_t> file = hash();
    EXPECT_TRUE(File::remove(path("nowhere")) && File::copy(path("none"), path("nowhere")) && links);
    EXPECT_TRUE(links != file && file == hash()); // a link to a file is the file
}

TEST_F(Directories, JoinPaths) {
    const auto is = [](const char* a, const char* b, const char* whole) { EXPECT_EQ(Directory::join(a, b), whole); };
    is("a", "b", "a/b"), is("a/", "b", "a/b"), is("a", "/b", "a/b"), is("a//", "//b/", "a/b/"), is("/", "b", "/b");
    is("", "b", "b"), is("", "/b", "/b"), is("a", "", "a"), is("C:/", "b", "C:/b"), is("", "", ""), is("a", "/", "a/");
    for (const String& folder : {Directory::getTemporary(), Directory::getCurrent()}) {
        EXPECT_TRUE(Directory::exists(folder) && std::string_view(folder).find('\\') == std::string::npos) << folder;
        EXPECT_FALSE(std::string_view(folder).ends_with('/') && folder.size() > 3) << folder;
    }
}

TEST_F(Directories, NamesThatAreNoneNameNothing) {
    write("x", "x");
    for (const std::string& name :
         {std::string(), path("x") + std::string("\0y", 2), path("") + std::string(70000, 'n'), path("missing"),
          path("x/"), path("missing/x"), path("*"), std::string("\xFF/\xFE")}) {
        Vector<Directory::Entry> entries(1);
        EXPECT_FALSE(Directory::list(name, entries) || !entries.empty() || Directory::exists(name)) << name;
        EXPECT_FALSE(Directory::remove(name) || Directory::removeTree(name) || Directory::rename(name, path("y")));
        EXPECT_FALSE(Directory::getDirectoryHash(name) || File::exists(name) || File::getSize(name)) << name;
        EXPECT_FALSE(File::getModificationTime(name).isValid() || File::remove(name)) << name;
        EXPECT_FALSE(File::copy(name, path("y")) || File::rename(name, path("y"))) << name;
    }
    for (const std::string& name :
         {std::string(), path("y") + std::string("\0y", 2), path("") + std::string(70000, 'n')})
        EXPECT_FALSE(Directory::create(name) || File::rename(path("x"), name) || File::copy(path("x"), name) ||
                     File::appendFile(name, {}) || File::replaceFile(name, {}));
    EXPECT_EQ(listed(""), "x1 ");
}

} // namespace
} // namespace kiv
