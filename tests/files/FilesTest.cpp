// Hunts: names that are not ASCII, folders and oversized files read as files, files that tell no length, contents left
// over from before a failed read, messages that are missing or not asked for.

#include "kiv/core/Buffer.h"
#include "kiv/core/String.h"
#include "kiv/files/File.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

using namespace kiv;
using namespace std::string_view_literals;

namespace {

class Files : public testing::Test {
protected:
    String path(const char* name) const { return m_folder.utf8(name); }

    // Loads into a String and a Buffer that hold something; the messages of both must agree.
    struct Loaded {
        bool ok;
        String text;
        std::string log;
    };
    Loaded load(const String& file, bool quiet = false) {
        support::OutputCapture output;
        Loaded result{false, "before", ""};
        result.ok = result.text.loadFromFile(file, quiet);
        result.log = output.take();
        Buffer buffer(reinterpret_cast<const uint8_t*>("before"), 6);
        EXPECT_EQ(buffer.loadFromFile(file, quiet), result.ok);
        EXPECT_EQ(String(buffer), result.text);
        EXPECT_EQ(output.take(), result.log);
        return result;
    }

    const support::TemporaryFolder m_folder;
};

} // namespace

TEST_F(Files, WhatIsSavedIsLoaded) {
    const auto survives = [this](const char* name, std::string_view content) {
        const String text(content);
        EXPECT_TRUE(text.saveToFile(path(name))) << name;
        EXPECT_EQ(load(path(name)).text, text) << name;
        EXPECT_TRUE(Buffer(text.getConstByteSpan()).saveToFile(path(name))) << name;
        const Loaded loaded = load(path(name));
        EXPECT_TRUE(loaded.ok && loaded.text == text && loaded.log.empty()) << name;
    };
    survives("plain", "line\r\nline\n\x1A\0end"sv); // no text mode, no end mark
    survives("plain", "shorter");
    survives("plain", "");
    survives("na\xC3\xAFve \xD0\xB6 \xE6\x97\xA5 \xF0\x9F\x98\x80.txt", "x");
    survives(String(240, 'n'), std::string(300000, 'x')); // longer than Windows takes plain paths
}

TEST_F(Files, WhatCannotBeOpenedIsLoggedUnlessQuiet) {
    const String missing = path("missing");
    for (const bool quiet : {false, true}) {
        const Loaded loaded = load(missing, quiet);
        EXPECT_TRUE(!loaded.ok && loaded.text.empty());
        EXPECT_EQ(loaded.log, quiet ? "" : "[ERROR] cant open file '" + missing + "'\n");
    }
    for (const char* name : {"", "\xFF\xFE/x"}) EXPECT_FALSE(load(name).ok) << name;
    ASSERT_TRUE(String("x").saveToFile(path("real")));
    String text;
    EXPECT_FALSE(text.loadFromFile(path("real") + std::string_view("\0y", 2), true)); // not cut at the zero byte
}

TEST_F(Files, FoldersAreNoFiles) {
    const Loaded loaded = load(path(""), true);
    EXPECT_TRUE(!loaded.ok && loaded.text.empty());
    EXPECT_EQ(loaded.log, "[ERROR] cant read file '" + path("") + "' of 0 bytes\n"); // quiet or not
    EXPECT_FALSE(String("x").saveToFile(path("")) || String("x").saveToFile(path("missing/x")));
}

TEST_F(Files, FilesLongerThanASpanAreRefused) {
    const String large = path("large");
    ASSERT_TRUE(String("x").saveToFile(large));
    std::error_code error;
    std::filesystem::resize_file(m_folder.path("large"), 0x100000000, error);
    if (error) GTEST_SKIP() << "no file of 4 GiB can be made here: " << error.message();
    const Loaded loaded = load(large);
    EXPECT_TRUE(!loaded.ok && loaded.text.empty());
    EXPECT_EQ(loaded.log, "[ERROR] cant read file '" + large + "' of 4294967296 bytes\n");
}

TEST_F(Files, FilesThatTellNoLengthAreReadToTheirEnd) {
    const char* const made = "/proc/self/maps"; // told to be empty
    if (!std::filesystem::exists(made)) GTEST_SKIP() << "this system has no files of unknown length";
    String text;
    EXPECT_TRUE(text.loadFromFile(made) && text.ends_with_newline());
}

TEST_F(Files, ChangeByName) {
    const auto text = [&](const char* name) { return load(path(name), true).text; };
    const auto span = [](const char* bytes) {
        return ConstByteSpan(reinterpret_cast<const uint8_t*>(bytes), static_cast<unsigned>(std::strlen(bytes)));
    };
    const GregorianDate before = GregorianDate::now();
    EXPECT_TRUE(File::appendFile(path("a"), span("one\n")) && File::appendFile(path("a"), span("two")));
    EXPECT_EQ(text("a"), "one\ntwo");
    const int64_t age = File::getModificationTime(path("a")).getMicrosecondsSince(before);
    EXPECT_TRUE(-5000000 < age && age < 60000000) << age; // file systems keep coarser times
    EXPECT_TRUE(File::replaceFile(path("b"), span("new")) && File::replaceFile(path("b"), span("newer")));
    EXPECT_TRUE(File::copy(path("a"), path("c")) && File::copy(path("b"), path("a")) &&
                File::rename(path("b"), path("c")));
    EXPECT_EQ(text("a") + text("c"), "newernewer");
    EXPECT_TRUE(!File::copy(path("a"), path("a")) && File::getSize(path("a")) == 5u);
    EXPECT_TRUE(File::exists(path("c")) && File::remove(path("c")) && !File::exists(path("c")));
    EXPECT_FALSE(File::remove(path("c")) || File::getSize(path("")) || File::exists(path("")) ||
                 File::remove(path("")));
    EXPECT_TRUE(File::getModificationTime(path("")).isValid());
}
