// Hunts: old contents lost or mixed with new ones by failures and by two writers, files left over, rights that change,
// links and things that are no files replaced by files.
#include "kiv/platform/FileReplacement.h"
#include "tests/support/SystemFaults.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <memory>

namespace kiv::platform {
namespace {

using Names = std::set<std::string>;

TEST(FileReplacement, TakesPlaceAtOnceOrNotAtAll) {
    const support::TemporaryFolder folder;
    const auto replace = [&](const char* text, bool isCommitted) {
        FileReplacement file(folder.utf8("file"));
        EXPECT_TRUE(file.write(text, std::string(text).size())) << file.getFailure();
        EXPECT_TRUE(file.write("!", 1));
        EXPECT_EQ(isCommitted && file.commit(), isCommitted) << file.getFailure();
    };
    replace("first", false);
    EXPECT_EQ(folder.names(), Names());
    replace("first", true);
    EXPECT_EQ(folder.read("file"), "first!");
    replace("2", false);
    EXPECT_EQ(folder.read("file"), "first!");
    folder.write("file.new", "left over by a program that was stopped");
    replace("2", true);
    EXPECT_EQ(folder.read("file"), "2!");
    EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileReplacement, WritersDoNotMixAndTheLastPrevails) {
    const support::TemporaryFolder folder;
    FileReplacement a(folder.utf8("file")), b(folder.utf8("file"));
    EXPECT_TRUE(a.write("aaa", 3) && b.write("b", 1) && a.write("a", 1)) << a.getFailure() << b.getFailure();
    EXPECT_TRUE(b.commit()) << b.getFailure();
    EXPECT_EQ(folder.read("file"), "b");
    EXPECT_TRUE(a.commit()) << a.getFailure();
    EXPECT_EQ(folder.read("file"), "aaaa");
    EXPECT_EQ(folder.names(), Names{"file"});

    std::vector<std::unique_ptr<FileReplacement>> many;
    while (many.size() < 16) {
        many.push_back(std::make_unique<FileReplacement>(folder.utf8("file")));
        EXPECT_EQ(many.back()->getFailure(), "");
    }
    EXPECT_EQ(FileReplacement(folder.utf8("file")).getFailure(), "is being replaced by too many at once");
    many.clear();
    EXPECT_EQ(folder.names(), Names{"file"});
}

TEST(FileReplacement, RefusesWhatIsNoFile) {
    const support::TemporaryFolder folder;
    const auto refuses = [&](const std::string& path, const std::string& why) {
        FileReplacement file(path);
        EXPECT_FALSE(file.write("x", 1) || file.commit()) << path;
        EXPECT_EQ(file.getFailure().substr(0, why.size()), why);
    };
    refuses("", "has no name of a file");
    refuses(std::string("a\0b", 3), "has no name of a file");
    refuses(folder.utf8("."), "is no ordinary file");
    refuses(folder.utf8("nowhere/file"), "can't be created: ");
    EXPECT_EQ(folder.names(), Names());
}

TEST(FileReplacement, AFullDiskLeavesTheOldFile) {
    const support::TemporaryFolder folder;
    folder.write("file", "old");
    FileReplacement file(folder.utf8("file"));
    {
        const support::FileSizeLimit limit(100000);
        if (!limit.isInForce()) GTEST_SKIP() << "this system has no limit to run into";
        const std::string piece(70000, 'x');
        EXPECT_TRUE(file.write(piece.data(), piece.size()) && !file.write(piece.data(), piece.size()));
        EXPECT_FALSE(file.write("x", 1) || file.commit());
    }
    EXPECT_EQ(file.getFailure().substr(0, 18), "can't be written: ");
    EXPECT_EQ(folder.read("file"), "old");
}

TEST(FileReplacement, KeepsRightsAndLinks) {
    namespace fs = std::filesystem;
    const support::TemporaryFolder folder;
    folder.write("file", "old");
    std::error_code error;
    fs::permissions(folder.path("file"), fs::perms::owner_read | fs::perms::owner_write);
    const fs::perms rights = fs::status(folder.path("file")).permissions();
    fs::create_directory(folder.path("other"));
    fs::create_symlink("../file", folder.path("other/link"), error);
    if (error) GTEST_SKIP() << "no symbolic links here: " << error.message();
    FileReplacement file(folder.utf8("other/link"));
    EXPECT_TRUE(file.write("new", 3) && file.commit()) << file.getFailure();
    EXPECT_EQ(folder.read("file"), "new");
    EXPECT_TRUE(fs::is_symlink(folder.path("other/link")) && fs::status(folder.path("file")).permissions() == rights);
}

} // namespace
} // namespace kiv::platform
