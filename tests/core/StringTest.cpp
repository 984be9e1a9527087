// Hunts: ambiguous or wrongly chosen overloads, null pointers taken for texts, edits that read what they overwrite,
// lost or invented pieces of splits, code point positions that drift on broken bytes, an order of names that is none.

#include "kiv/core/String.h"
#include "kiv/core/Buffer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <unordered_set>

using namespace kiv;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

String ofBytes(std::string_view bytes) {
    return String(bytes);
}

// Bytes that are often cut, broken or zero.
std::string randomText(std::mt19937& random, size_t largest) {
    // clang-format off
    static constexpr std::string_view parts[] = {
        "a", "B", "0", "07", ",", "\xC3", "\xC3\xA9", "\x80", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\n", "\\", "\0"sv, "%",
        "\xC2\x85", "\x01", ".", "\xED\xA0", "'", "$"};
    // clang-format on
    std::string text;
    for (size_t count = random() % (largest + 1); count > 0; --count) text += parts[random() % std::size(parts)];
    return text;
}

// The definition: strict where the bytes allow it, else one byte as Windows-1252.
std::u32string readLeniently(const String& text) {
    std::u32string result;
    for (auto it = text.begin(); it != text.end();) {
        const uint32_t strict = text.utf8_strict_peek(it);
        result += static_cast<char32_t>(strict != String::noCodePoint ? strict : text.utf8_peek(it));
        text.utf8_parse(it);
    }
    return result;
}

} // namespace

TEST(String, EveryTextTypeConvertsIn) {
    const unsigned short utf16[] = {'a', 0xD83D, 0xDE00, 0xDC00, 0};
    const unsigned int utf32[] = {'a', 0x1F600, 0x110000, 0};
    const char* const smiley = "a\xF0\x9F\x98\x80\xEF\xBF\xBD";
    EXPECT_EQ(String(utf16), smiley);
    EXPECT_EQ(String(utf32), smiley);
    EXPECT_EQ(String(U"a\x1F600"), String(u"a\xD83D\xDE00"));
    EXPECT_EQ(String(std::wstring(L"\u00E9")), "\xC3\xA9");
    EXPECT_EQ(String(SmartCStr("abc")), "abc");
    EXPECT_EQ(String(3, 'x'), "xxx");
    EXPECT_EQ(String("abc", 2), "ab");
    EXPECT_EQ(String(String("abcd"), 1, 2), "bc");
    EXPECT_EQ(String("abcd"s, 2), "cd");
    EXPECT_EQ(String("a\0b"sv).size(), 3u);
    EXPECT_EQ(String(Buffer(reinterpret_cast<const uint8_t*>("xyz"), 3)), "xyz");
    EXPECT_THROW(String("abc"s, 4), std::out_of_range);
}

TEST(String, EveryTextTypeConvertsOut) {
    const String text = ofBytes("\xC3\xA9\xF0\x9F\x98\x80\x80\0z"sv);
    const std::string standard = text;
    const std::string_view view = text;
    const SmartCStr smart = text;
    const char* const pointer = text;
    EXPECT_EQ(standard, view);
    EXPECT_EQ(standard, text.to_std_string());
    EXPECT_EQ(pointer, text.c_str());
    EXPECT_EQ(smart.size(), 7u); // ends at the zero byte
    EXPECT_EQ(text.utf8_to_utf16(), u"\u00E9\xD83D\xDE00\u20AC\0z"s);
    EXPECT_EQ(text.utf8_to_unicode(), U"\u00E9\x1F600\u20AC\0z"s);
    EXPECT_EQ(String(text.utf8_to_std_wstring()), String(text.utf8_to_unicode()));
    EXPECT_EQ(text.getConstByteSpan().getSize(), 9u);
    EXPECT_EQ(text.getConstByteSpanWithNullTerminator().getSize(), 10u);
    EXPECT_EQ(text.getConstByteSpanWithNullTerminator()[9], 0);
}

TEST(String, NullIsTheEmptyTextEverywhere) {
    const char* const null = nullptr;
    String text(null);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(String(static_cast<const unsigned short*>(nullptr)), "");
    EXPECT_EQ(String(null, 3), "");
    text = "abc";
    text.append(null).append(null, 2) += null;
    text.insert(1, null).replace_all(null, "x").append_separator(null);
    EXPECT_EQ(text + null, "abc");
    EXPECT_EQ(text.find(null), 0u);
    EXPECT_TRUE(text.begins_with(null) && text.ends_with(null) && text.contains(null));
    EXPECT_GT(text, null);
    EXPECT_GT(text.compare(null), 0);
    EXPECT_EQ(text.replace(0, 3, null), null);
    EXPECT_STREQ(SmartCStr(null).c_str(), "");
    EXPECT_EQ(String::natural_compare(null, ""), 0);
}

TEST(String, IndexesTakeEveryIntegerType) {
    String text = "abc";
    text[1] = 'x';
    text[2L] = 'y';
    const String& constant = text;
    EXPECT_EQ((std::string{constant[0], constant[1u], constant[2LL], text[size_t{0}], text[int64_t{1}]}), "axyax");
    EXPECT_THROW(text.at(3), std::out_of_range);
}

TEST(String, ComparesWithEveryTextTypeByUnsignedBytes) {
    const String text = "b";
    const auto allAgree = [&text](const auto& equal, const auto& greater) {
        return text == equal && equal == text && !(text != equal) && text <= equal && equal >= text && text < greater &&
               greater > text && greater != text && (text <=> greater) < 0 && text.compare(greater) < 0;
    };
    EXPECT_TRUE(allAgree("b", "\xC3\xA9"));
    EXPECT_TRUE(allAgree("b"s, "ba"s));
    EXPECT_TRUE(allAgree("b"sv, "b\0"sv));
    EXPECT_TRUE(allAgree(SmartCStr("b"), SmartCStr("c")));
    EXPECT_TRUE(allAgree(String("b"), String("c")));
    EXPECT_TRUE(text == SmartCStr(text) && SmartCStr("a") < SmartCStr("b"));
}

// Both convert to pointers, and the standard's function objects like to compare pointers by address.
TEST(String, FunctionObjectsOfTheStandardCompareTexts) {
    const std::set<String, std::less<>> names{"x", "y"};
    EXPECT_TRUE(names.contains("x") && names.contains("y"sv) && !names.contains(String("z")));
    const char apart[] = "b\0a\0b";
    const SmartCStr first = apart, second = apart + 2, third = apart + 4;
    EXPECT_TRUE(std::less<>()(second, first) && std::greater<>()(third, second) && std::equal_to<>()(first, third));
    EXPECT_TRUE(std::ranges::less()(second, first) && std::ranges::greater_equal()(first, third));
    EXPECT_EQ(std::compare_three_way()(first, third), std::strong_ordering::equal);
    Vector<String> texts{"c", "a", "b"};
    std::ranges::sort(texts);
    EXPECT_EQ(texts, (Vector<String>{"a", "b", "c"}));
    EXPECT_EQ(std::ranges::max(texts), "c");
    EXPECT_TRUE(std::unordered_set<String>({"x"}).contains("x"));
    EXPECT_EQ(std::unordered_set<SmartCStr>({"x"}).count(String("x")), 1u); // by text, not by address
}

TEST(String, ConcatenatesWithEveryTextType) {
    const String text = "b";
    EXPECT_EQ("a" + text + 'c' + "d"s + "e"sv + SmartCStr("f") + text, "abcdefb");
    EXPECT_EQ('a' + text + nullptr, "ab");
    EXPECT_EQ(("x"s + text) + ("y"sv + text), "xbyb");
    std::ostringstream stream;
    stream << text << String("\0z"sv);
    EXPECT_EQ(stream.str(), "b\0z"s);
}

TEST(String, AssignmentsTakeEveryTextType) {
    String text = "abc";
    text = text.c_str() + 1; // a part of itself
    EXPECT_EQ(text, "bc");
    EXPECT_EQ((text = 'c'), "c");
    EXPECT_EQ((text = "x"s), "x");
    EXPECT_EQ((text = "y"sv), "y");
    EXPECT_EQ((text = nullptr), "");
    EXPECT_EQ((text = {}), "");
    EXPECT_EQ(text.assign("abc", 2).append("xyz", 1).append(String("pqr"), 1).append(2, '!'), "abxqr!!");
    EXPECT_EQ(text.assign(3, 'x').insert(1, "--").insert(0, 'a').replace(1, 1, "q"), "aq--xx");
    text.append(text).insert(1, text.substr(0, 2)).erase(4);
    EXPECT_EQ(text, "aaqq");
    text.erase(text.begin());
    text.insert(text.begin(), 'z');
    EXPECT_EQ(text.replace(text.begin(), text.begin() + 2, "__").replace(0, 1, 2, '*'), "**_qq");
}

// The surface is std::string's: the same calls on both, with random arguments.
TEST(String, SearchesAndEditsLikeTheStandardString) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        const std::string model = randomText(random, 6), other = randomText(random, 2);
        const String text = model;
        const size_t at = random() % (model.size() + 1), count = random() % 4;
        const char c = other.empty() ? 'a' : other[0];
        ASSERT_EQ(text.find(other, at), model.find(other, at));
        ASSERT_EQ(text.rfind(other, at), model.rfind(other, at));
        ASSERT_EQ(text.find_first_of(other, at), model.find_first_of(other, at));
        ASSERT_EQ(text.find_first_not_of(other, at), model.find_first_not_of(other, at));
        ASSERT_EQ(text.find_last_of(other, at), model.find_last_of(other, at));
        ASSERT_EQ(text.find_last_not_of(other, at), model.find_last_not_of(other, at));
        ASSERT_EQ(text.find_last_not_of(c), model.find_last_not_of(c));
        ASSERT_EQ(text.rfind(c) == String::npos, !text.contains(c));
        ASSERT_EQ(text.compare(other) < 0, model < other);
        ASSERT_EQ(text.compare(at, count, other) < 0, model.compare(at, count, other) < 0);
        ASSERT_EQ(String(text).replace(at, count, other), std::string(model).replace(at, count, other));
        ASSERT_EQ(String(text).insert(at, other), std::string(model).insert(at, other));
        ASSERT_EQ(String(text).erase(at, count), std::string(model).erase(at, count));
        ASSERT_EQ(text.substr(at, count), model.substr(at, count));
        // A second text with a number: a position in a String, a length of a `const char*`.
        const size_t from = random() % (other.size() + 1);
        ASSERT_EQ(String(text).append(String(other), from), std::string(model).append(other, from));
        ASSERT_EQ(String(text).assign(String(other), from), std::string(model).assign(other, from));
        ASSERT_EQ(String(text).insert(at, String(other), from), std::string(model).insert(at, other, from));
        ASSERT_EQ(String(text).replace(at, count, String(other), from),
                  std::string(model).replace(at, count, other, from));
        ASSERT_EQ(String(text).append(other.c_str(), from), std::string(model).append(other.c_str(), from));
        ASSERT_EQ(String(text).assign(other.c_str(), from), std::string(model).assign(other.c_str(), from));
        ASSERT_EQ(String(text).insert(at, other.c_str(), from), std::string(model).insert(at, other.c_str(), from));
        ASSERT_EQ(String(text).replace(at, count, other.c_str(), from),
                  std::string(model).replace(at, count, other.c_str(), from));
        ASSERT_EQ(std::hash<String>()(text) == std::hash<String>()(other), text == other);
    }
    EXPECT_THROW(String("a").substr(2), std::out_of_range);
    EXPECT_THROW(String("a").append(String("b"), 2), std::out_of_range);
}

TEST(String, PredicatesLookAtBothEnds) {
    const String text = "kiv\n";
    EXPECT_TRUE(text.begins_with("ki") && text.begins_with('k') && !text.begins_with("kiv\n\n"));
    EXPECT_TRUE(text.ends_with("v\n") && text.ends_with('\n') && text.ends_with_newline());
    EXPECT_TRUE(text.contains("iv") && text.contains('v') && !text.contains("vi") && text.contains(""));
    EXPECT_TRUE(!String().ends_with_newline() && !String("\nx").ends_with_newline() &&
                String("\r").ends_with_newline());
}

TEST(String, ReplaceAllEndsAndHandlesPartsOfItself) {
    const auto replaced = [](String text, const char* from, const char* to) {
        EXPECT_EQ(text.replace_all_copy(from, to), String(text).replace_all(from, to));
        return text.replace_all(from, to);
    };
    EXPECT_EQ(replaced("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(replaced("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaced("abc", "", "x"), "abc");
    EXPECT_EQ(replaced("abc", "b", ""), "ac");
    EXPECT_EQ(replaced("", "a", "b"), "");
    String text = "a-b";
    EXPECT_EQ(text.replace_all(std::string_view(text).substr(1, 1), text), "aa-bb");
    EXPECT_EQ(text.replace_all('a', 'x').replace_all_copy('x', 'y'), "yy-bb");
}

TEST(String, TrimsOnlyWhatItSays) {
    EXPECT_EQ(String(" \ta b\t ").trim_spaces(), "a b");
    EXPECT_EQ(String(" \n a \r\n").trim_spaces(), "\n a \r\n");
    EXPECT_EQ(String(" \n a \r\n").trim_spaces_newlines(), "a");
    EXPECT_EQ(String(" \t ").trim_spaces(), "");
    EXPECT_EQ(String("007").trim_leading_zeros(), "7");
    EXPECT_EQ(String("700").trim_leading_zeros(), "700");
    for (const char* zeros : {"0", "000", ""}) EXPECT_EQ(String(zeros).trim_leading_zeros(), "");
}

TEST(String, AppendSeparatorNeverDoublesOrLeads) {
    EXPECT_EQ(String("a").append_separator('/').append_separator('/'), "a/");
    EXPECT_EQ(String().append_separator('/'), "");
    EXPECT_EQ(String("a,").append_separator(", ").append_separator(", "), "a,, ");
}

TEST(String, SplitGivesEveryPieceBetweenSeparators) {
    using Pieces = Vector<String>;
    EXPECT_EQ(String("a,,b").split(','), (Pieces{"a", "", "b"}));
    EXPECT_EQ(String("a,").split(','), (Pieces{"a", ""}));
    EXPECT_EQ(String(",").split(','), (Pieces{"", ""}));
    EXPECT_EQ(String("").split(','), Pieces{});
    EXPECT_EQ(String("a::b:::c").splitByString("::"), (Pieces{"a", "b", ":c"}));
    EXPECT_EQ(String("abc").splitByString(""), Pieces{"abc"});
    EXPECT_EQ(String("").splitByString("::"), Pieces{});
}

TEST(StringUtf8, ReadersStopAtTheEndAndNotAtZeroBytes) {
    String text = ofBytes("\0\xC3\xA9"sv);
    String::const_iterator it = text.begin();
    EXPECT_EQ(text.utf8_parse(it), 0u);
    EXPECT_EQ(text.utf8_parse(it), 0xE9u);
    EXPECT_EQ(it, text.end());
    EXPECT_EQ(text.utf8_parse(it), 0u);
    EXPECT_EQ(text.utf8_strict_parse(it), 0u);
    EXPECT_EQ(it, text.end());
    String::iterator changeable = text.begin() + 1;
    EXPECT_EQ(text.utf8_strict_parse(changeable), 0xE9u);
    const char* pointer = text.data() + 1;
    EXPECT_EQ(String::utf8_parse(pointer, text.data() + 2), 0xC3u); // cut: one byte
    EXPECT_EQ(String::utf8_strict_parse(pointer, text.data() + 2), 0u);
    const String refused = ofBytes("\xED\xA0\x80");
    it = refused.begin();
    EXPECT_EQ(refused.utf8_strict_parse(it), String::noCodePoint);
    EXPECT_TRUE(it == refused.begin() && !refused.validate());
    EXPECT_EQ(refused.utf8_parse(it), 0xEDu);
    EXPECT_EQ(it, refused.begin() + 1);
}

// Every position-based operation counts as the definition of lenient reading does, on whatever bytes.
TEST(StringUtf8, PositionsCountLenientCodePoints) {
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
        const String text(randomText(random, 8));
        const std::u32string model = readLeniently(text);
        ASSERT_EQ(text.utf8_size(), model.size());
        ASSERT_EQ(text.utf8_to_unicode(), model);
        const size_t at = random() % 10, count = random() % 5;
        ASSERT_EQ(text.utf8_at(at), at < model.size() ? uint32_t{model[at]} : String::noCodePoint);
        ASSERT_EQ(readLeniently(text.utf8_substr(at, count)), at < model.size() ? model.substr(at, count) : U"");
        ASSERT_EQ(text.utf8_substr(0, at) + text.utf8_substr(at), text); // the bytes stay as they are
        ASSERT_EQ(text.utf8_get_iterator_at(at) == text.end(), at >= model.size());
        const std::u32string beforeZero = model.substr(0, std::min(model.find(U'\0'), model.size()));
        ASSERT_EQ(text.utf8_fix(), String(beforeZero));
        ASSERT_TRUE(text.utf8_fix().validate());
    }
}

TEST(StringUtf8, AppendRefusesWhatIsNoCodePoint) {
    EXPECT_EQ(String().utf8_append(0x24).utf8_append(0xE9).utf8_append(0x20AC).utf8_append(0x10FFFF),
              "$\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF");
    EXPECT_EQ(String("x").utf8_append(String::noCodePoint), "x");
    for (const uint32_t invalid : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFEu})
        EXPECT_EQ(String().utf8_append(invalid), "\xEF\xBF\xBD");
    EXPECT_EQ(String().utf8_append(0).size(), 1u);
}

TEST(StringUtf8, AsciiFixesEndAtTheFirstZero) {
    EXPECT_EQ(ofBytes("\xC3\xA9\x81\xE9\t\x7Fz\0y"sv).ascii_fix(), "???\t\x7Fz");
    EXPECT_EQ(ofBytes("\xC3\xA9\x1B\t\x7Fz\0y"sv).ascii_fix_remove_controlcodes(), "?z");
}

TEST(StringUtf8, CaseIsMappedByCodePoint) {
    const String text = "\xC3\x89t\xC3\xA9 \xCE\xA3\xC7\x86"; // É t é, capital sigma, small dz with caron
    EXPECT_EQ(text.utf8_lowercase(), "\xC3\xA9t\xC3\xA9 \xCF\x83\xC7\x86");
    EXPECT_EQ(text.utf8_uppercase(), "\xC3\x89T\xC3\x89 \xCE\xA3\xC7\x84");
    EXPECT_EQ(String("\xC7\x86xY").utf8_capitalize(), "\xC7\x85xY"); // title case is neither upper nor lower
    EXPECT_EQ(String("i\xC4\xB1").utf8_uppercase(), "II");           // no locale
    EXPECT_EQ(String().utf8_capitalize(), "");
    EXPECT_EQ(ofBytes("\xE9\0X"sv).utf8_lowercase(), "\xC3\xA9\0x"sv);
}

TEST(StringUtf8, PredicatesJudgeEveryByte) {
    EXPECT_TRUE(String("0189").utf8_isnumeric());
    for (const char* text : {"", "-1", "1.0", "\xD9\xA1", "1 "}) EXPECT_FALSE(String(text).utf8_isnumeric()) << text;
    EXPECT_FALSE(String(" Az~").utf8_contains_special_characters());
    for (const char* text : {"\t", "\x7F", "\xC3\xA9", "\x80"})
        EXPECT_TRUE(String(text).utf8_contains_special_characters()) << text;
}

TEST(StringUtf8, DirectionFlagsTellWhichStrongOneIsFirst) {
    EXPECT_EQ(String("12 .-").utf8_rtl_flags(), 0u);
    EXPECT_EQ(String("1 abc").utf8_rtl_flags(), 1u);
    EXPECT_EQ(String("1 \xD7\x90").utf8_rtl_flags(), 6u); // Hebrew
    EXPECT_EQ(String("a\xD8\xA7").utf8_rtl_flags(), 3u);  // Arabic second
    EXPECT_EQ(String("\xD8\xA7 a").utf8_rtl_flags(), 7u);
}

TEST(StringNatural, OrdersAsPeopleDo) {
    const auto ascending = [](std::initializer_list<const char*> names) {
        for (auto a = names.begin(); a != names.end(); ++a)
            for (auto b = names.begin(); b != names.end(); ++b)
                EXPECT_EQ(String::natural_compare(*a, *b), a < b ? -1 : a > b ? 1 : 0) << *a << " " << *b;
    };
    ascending(
        {"", " ", "1", "image2", "image10", "Image10b", "image99999999999999999999", "image100000000000000000000"});
    ascending({"x01", "x1", "X2", "x2a", "x\xC3\x89", "x\xC3\xA9z"});
}

TEST(StringNatural, IsATotalOrder) {
    std::mt19937 random(3);
    Vector<String> names;
    for (int i = 0; i < 60; ++i) names.emplace_back(randomText(random, 4).c_str());
    const auto order = [](const String& a, const String& b) { return String::natural_compare(a, b); };
    for (const String& a : names) {
        for (const String& b : names) {
            ASSERT_EQ(order(a, b), -order(b, a));
            ASSERT_EQ(order(a, b) == 0, a == b);
            for (const String& c : names) ASSERT_FALSE(order(a, b) < 0 && order(b, c) < 0 && order(a, c) >= 0);
        }
    }
}
