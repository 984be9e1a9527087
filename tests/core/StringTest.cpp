// Hunts: ambiguous or wrongly chosen overloads, null pointers taken for texts, edits that read what they overwrite,
// lost or invented pieces of splits, code point positions that drift on broken bytes, an order of names that is none.

#include "kiv/core/String.h"
#include "kiv/core/Buffer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <tuple>
#include <unordered_set>

using namespace kiv;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

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
    const auto is = [](const auto& text, const char* expected) { EXPECT_EQ(String(text), expected); };
    is(utf16, smiley), is(utf32, smiley), is(u"a\xD83D\xDE00", "a\xF0\x9F\x98\x80");
    is(U"a\x1F600", "a\xF0\x9F\x98\x80"), is(std::wstring(L"\u00E9"), "\xC3\xA9");
    is(SmartCStr("abc"), "abc"), is(String(3, 'x'), "xxx"), is(String("abc", 2), "ab");
    is(String(String("abcd"), 1, 2), "bc"), is(String("abcd"s, 2), "cd");
    is(Buffer(reinterpret_cast<const uint8_t*>("xyz"), 3), "xyz");
    EXPECT_EQ(String("a\0b"sv).size(), 3u);
    EXPECT_THROW(String("abc"s, 4), std::out_of_range);
}

TEST(String, EveryTextTypeConvertsOut) {
    const String text = String("\xC3\xA9\xF0\x9F\x98\x80\x80\0z"sv);
    const std::string standard = text;
    const std::string_view view = text;
    const SmartCStr smart = text;
    const char* const pointer = text;
    EXPECT_TRUE(standard == view && standard == text.to_std_string() && pointer == text.c_str());
    EXPECT_EQ(smart.size(), 7u); // ends at the zero byte
    EXPECT_EQ(text.utf8_to_utf16(), u"\u00E9\xD83D\xDE00\u20AC\0z"s);
    EXPECT_EQ(text.utf8_to_unicode(), U"\u00E9\x1F600\u20AC\0z"s);
    EXPECT_EQ(String(text.utf8_to_std_wstring()), String(text.utf8_to_unicode()));
    const ConstByteSpan ended = text.getConstByteSpanWithNullTerminator();
    EXPECT_TRUE(text.getConstByteSpan().getSize() == 9 && ended.getSize() == 10 && ended[9] == 0);
}

TEST(String, NullIsTheEmptyTextEverywhere) {
    const char* const null = nullptr;
    String text(null);
    EXPECT_TRUE(text == "" && String(static_cast<const unsigned short*>(nullptr)) == "" && String(null, 3) == "");
    text = "abc";
    text.append(null).append(null, 2) += null;
    text.insert(1, null).replace_all(null, "x").append_separator(null);
    EXPECT_EQ(text + null, "abc");
    EXPECT_TRUE(text.find(null) == 0 && text.begins_with(null) && text.ends_with(null) && text.contains(null));
    EXPECT_TRUE(text > null && text.compare(null) > 0 && text.replace(0, 3, null) == null);
    EXPECT_STREQ(SmartCStr(null).c_str(), "");
    EXPECT_EQ(String::natural_compare(null, ""), 0);
}

TEST(String, ComparesWithEveryTextTypeByUnsignedBytes) {
    const String text = "b";
    const auto allAgree = [&text](const auto& equal, const auto& greater) {
        return text == equal && equal == text && !(text != equal) && text <= equal && equal >= text && text < greater &&
               greater > text && greater != text && (text <=> greater) < 0 && text.compare(greater) < 0;
    };
    EXPECT_TRUE(allAgree("b", "\xC3\xA9") && allAgree("b"s, "ba"s) && allAgree("b"sv, "b\0"sv));
    EXPECT_TRUE(allAgree(SmartCStr("b"), SmartCStr("c")) && allAgree(String("b"), String("c")));
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
    String text = "b";
    EXPECT_EQ("a" + text + 'c' + "d"s + "e"sv + SmartCStr("f") + text, "abcdefb");
    EXPECT_EQ('a' + text + nullptr, "ab");
    EXPECT_EQ(("x"s + text) + ("y"sv + text), "xbyb");
    std::ostringstream stream;
    stream << text << String("\0z"sv);
    EXPECT_EQ(stream.str(), "b\0z"s);
    // And indexes are of every integer type.
    text = "abc";
    text[1] = 'x', text[2L] = 'y';
    const String& constant = text;
    EXPECT_EQ((std::string{constant[0], constant[1u], constant[2LL], text[size_t{0}], text[int64_t{1}]}), "axyax");
    EXPECT_THROW(text.at(3), std::out_of_range);
}

TEST(String, AssignmentsTakeEveryTextType) {
    String text = "abc";
    text = text.c_str() + 1; // a part of itself
    EXPECT_EQ(text, "bc");
    EXPECT_TRUE((text = 'c') == "c" && (text = "x"s) == "x" && (text = "y"sv) == "y");
    EXPECT_TRUE((text = nullptr) == "" && (text = "z") == "z" && (text = {}) == "");
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
        const size_t at = random() % (model.size() + 1), count = random() % 4;
        const size_t from = random() % (other.size() + 1);
        const char c = other.empty() ? 'a' : other[0];
        const auto searches = [&](const auto& s, const auto& o) {
            return std::tuple(s.find(o, at), s.rfind(o, at), s.find_first_of(o, at), s.find_first_not_of(o, at),
                              s.find_last_of(o, at), s.find_last_not_of(o, at), s.find_last_not_of(c), s.compare(o) < 0,
                              s.compare(at, count, o) < 0, s == o, s.substr(at, count));
        };
        // A second text with a number: a position in a String, a length of a `const char*`.
        const auto edits = [&]<class Text>(const Text& s, const Text& o) {
            return std::tuple(Text(s).replace(at, count, o), Text(s).insert(at, o), Text(s).erase(at, count),
                              Text(s).append(o, from), Text(s).assign(o, from), Text(s).insert(at, o, from),
                              Text(s).replace(at, count, o, from), Text(s).append(o.c_str(), from),
                              Text(s).assign(o.c_str(), from), Text(s).insert(at, o.c_str(), from),
                              Text(s).replace(at, count, o.c_str(), from));
        };
        ASSERT_TRUE(searches(String(model), String(other)) == searches(model, other)) << model << ", " << other;
        ASSERT_TRUE(edits(String(model), String(other)) == edits(model, other)) << model << ", " << other;
    }
    EXPECT_THROW(String("a").substr(2), std::out_of_range);
    EXPECT_THROW(String("a").append(String("b"), 2), std::out_of_range);
}

TEST(String, PredicatesLookAtBothEnds) {
    const String text = "kiv\n";
    EXPECT_TRUE(text.begins_with("ki") && text.begins_with('k') && !text.begins_with("kiv\n\n"));
    EXPECT_TRUE(text.ends_with("v\n") && text.ends_with('\n') && text.ends_with_newline());
    EXPECT_TRUE(text.contains("iv") && text.contains('v') && !text.contains("vi") && text.contains(""));
    EXPECT_TRUE(!String("\nx").ends_with_newline() && String("\r").ends_with_newline() && !String().ends_with('x'));
}

TEST(String, ReplaceAllEndsAndHandlesPartsOfItself) {
    const auto is = [](const String& text, const char* from, const char* to, const char* expected) {
        EXPECT_EQ(text.replace_all_copy(from, to), expected);
        EXPECT_EQ(String(text).replace_all(from, to), expected);
    };
    is("aaa", "a", "aa", "aaaaaa"), is("aaa", "aa", "b", "ba"), is("abc", "", "x", "abc"), is("abc", "b", "", "ac");
    is("", "a", "b", "");
    String text = "a-b";
    EXPECT_EQ(text.replace_all(std::string_view(text).substr(1, 1), text), "aa-bb");
    EXPECT_EQ(text.replace_all('a', 'x').replace_all_copy('x', 'y'), "yy-bb");
}

TEST(String, TrimsOnlyWhatItSays) {
    const auto is = [](const String& text, const char* expected) { EXPECT_EQ(text, expected); };
    is(String(" \ta b\t ").trim_spaces(), "a b"), is(String(" \n a \r\n").trim_spaces(), "\n a \r\n");
    is(String(" \n a \r\n").trim_spaces_newlines(), "a"), is(String(" \t ").trim_spaces(), "");
    is(String("007").trim_leading_zeros(), "7"), is(String("700").trim_leading_zeros(), "700");
    for (const char* zeros : {"0", "000", ""}) is(String(zeros).trim_leading_zeros(), "");
    // Separators are neither doubled nor first.
    is(String("a").append_separator('/').append_separator('/'), "a/"), is(String().append_separator('/'), "");
    is(String("a,").append_separator(", ").append_separator(", "), "a,, ");
}

TEST(String, SplitGivesEveryPieceBetweenSeparators) {
    using Pieces = Vector<String>;
    const auto split = [](const char* text, const Pieces& pieces) { EXPECT_EQ(String(text).split(','), pieces); };
    split("a,,b", {"a", "", "b"}), split("a,", {"a", ""}), split(",", {"", ""}), split("", {});
    EXPECT_EQ(String("a::b:::c").splitByString("::"), (Pieces{"a", "b", ":c"}));
    EXPECT_TRUE(String("abc").splitByString("") == Pieces{"abc"} && String("").splitByString("::").empty());
}

TEST(StringUtf8, ReadersStopAtTheEndAndNotAtZeroBytes) {
    String text = String("\0\xC3\xA9"sv);
    String::const_iterator it = text.begin();
    EXPECT_TRUE(text.utf8_parse(it) == 0 && text.utf8_parse(it) == 0xE9 && it == text.end());
    EXPECT_TRUE(text.utf8_parse(it) == 0 && text.utf8_strict_parse(it) == 0 && it == text.end());
    String::iterator changeable = text.begin() + 1;
    EXPECT_EQ(text.utf8_strict_parse(changeable), 0xE9u);
    const char* pointer = text.data() + 1;
    EXPECT_EQ(String::utf8_parse(pointer, text.data() + 2), 0xC3u); // cut: one byte
    EXPECT_EQ(String::utf8_strict_parse(pointer, text.data() + 2), 0u);
    const String refused = String("\xED\xA0\x80"sv);
    it = refused.begin();
    EXPECT_EQ(refused.utf8_strict_parse(it), String::noCodePoint);
    EXPECT_TRUE(it == refused.begin() && !refused.validate());
    EXPECT_TRUE(refused.utf8_parse(it) == 0xED && it == refused.begin() + 1);
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
    EXPECT_EQ(String().utf8_append(0x24).utf8_append(0xE9).utf8_append(0x20AC).utf8_append(0x10FFFF).utf8_append(0),
              "$\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF\0"s);
    EXPECT_EQ(String("x").utf8_append(String::noCodePoint), "x");
    for (const uint32_t invalid : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFEu})
        EXPECT_EQ(String().utf8_append(invalid), "\xEF\xBF\xBD");
    EXPECT_EQ(String("\xC3\xA9\x81\xE9\t\x7Fz\0y"sv).ascii_fix(), "???\t\x7Fz"); // ends at the first zero
    EXPECT_EQ(String("\xC3\xA9\x1B\t\x7Fz\0y"sv).ascii_fix_remove_controlcodes(), "?z");
}

TEST(StringUtf8, CaseIsMappedByCodePoint) {
    const String text = "\xC3\x89t\xC3\xA9 \xCE\xA3\xC7\x86"; // É t é, capital sigma, small dz with caron
    EXPECT_EQ(text.utf8_lowercase(), "\xC3\xA9t\xC3\xA9 \xCF\x83\xC7\x86");
    EXPECT_EQ(text.utf8_uppercase(), "\xC3\x89T\xC3\x89 \xCE\xA3\xC7\x84");
    EXPECT_EQ(String("\xC7\x86xY").utf8_capitalize(), "\xC7\x85xY"); // title case is neither upper nor lower
    EXPECT_EQ(String("i\xC4\xB1").utf8_uppercase(), "II");           // no locale
    EXPECT_EQ(String().utf8_capitalize(), "");
    EXPECT_EQ(String("\xE9\0X"sv).utf8_lowercase(), "\xC3\xA9\0x"sv);
}

TEST(StringUtf8, PredicatesJudgeEveryByte) {
    EXPECT_TRUE(String("0189").utf8_isnumeric());
    for (const char* text : {"", "-1", "1.0", "\xD9\xA1", "1 "}) EXPECT_FALSE(String(text).utf8_isnumeric()) << text;
    EXPECT_FALSE(String(" Az~").utf8_contains_special_characters());
    for (const char* text : {"\t", "\x7F", "\xC3\xA9", "\x80"})
        EXPECT_TRUE(String(text).utf8_contains_special_characters()) << text;
    // Directions: which strong one is first; Hebrew and Arabic are from right to left.
    const auto flags = [](const char* text, unsigned expected) { EXPECT_EQ(String(text).utf8_rtl_flags(), expected); };
    flags("12 .-", 0), flags("1 abc", 1), flags("1 \xD7\x90", 6), flags("a\xD8\xA7", 3), flags("\xD8\xA7 a", 7);
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
