// Hunts: names that lead out of their directory, the wrong one of two directories, leftovers in the buffer.
#include "kiv/files/ResourceLocator.h"

#include "kiv/core/Buffer.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kiv {
namespace {

TEST(ResourceLocator, NamesLeadOutOfNoDirectoryOnAnySystem) {
    const auto isName = [](std::string_view name) { return ResourceLocator::isResourceName(name); };
    for (const char* good :
         {"a", "a.b", "a/b/c.txt", ".hidden", "..a", "a..b/c", "com", "console/lpt", "\xC3\xA4 b/\xE4\xB8\x96"})
        EXPECT_TRUE(isName(good)) << good;
    for (const char* bad : {"",    ".",    "..",          "/a",  "a/",   "a//b",     "../a",     "a/../b",   "a/..",
                            "./a", "a\\b", "\\\\host\\a", "C:a", "C:/a", "a:stream", "a./b",     ".. /a",    "a ",
                            "...", "a\nb", "a\x7F",       "a*",  "con|", "a/nul",    "Con .txt", "lpt1.a/b", "CONIN$"})
        EXPECT_FALSE(isName(bad)) << bad;
    EXPECT_FALSE(isName(std::string_view("a\0b", 3)));
}

TEST(ResourceLocator, TheDirectoryAddedLastIsSearchedFirst) {
    const support::TemporaryFolder first, second;
    first.write("both", "old");
    first.write("one", "1");
    second.write("both", "new");
    std::filesystem::create_directory(second.path("one")); // in the way, and no file
    ResourceLocator locator;
    EXPECT_TRUE(!locator.addDirectory("") && locator.addDirectory(first.utf8("")));
    EXPECT_TRUE(locator.addDirectory(second.utf8("missing")) && locator.addDirectory(second.utf8("")));
    const auto fetch = [&](const char* name) {
        Buffer bytes;
        bytes.appendStringWithNull("leftover");
        if (!locator.fetch(name, bytes)) return bytes.empty() ? "none" : std::string("not emptied");
        return std::string(reinterpret_cast<const char*>(bytes.getBytePointer()), bytes.getSize());
    };
    EXPECT_EQ(fetch("both"), "new");
    support::LogLines log;
    EXPECT_EQ(fetch("one"), "1");
    log.take();
    EXPECT_EQ(fetch("two"), "none");
    EXPECT_EQ(fetch("../both"), "none");
    EXPECT_TRUE(log.take().empty());
    locator.addDirectory(first.utf8("")); // again: now first
    EXPECT_EQ(fetch("both"), "old");
}

} // namespace
} // namespace kiv
