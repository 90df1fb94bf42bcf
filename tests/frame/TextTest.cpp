#include "frame/Text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace sonra {
namespace {

constexpr const char* family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";

struct CountRow {
    std::string_view text;
    std::size_t count;
};

const std::vector<CountRow>& countRows() {
    static const std::vector<CountRow> rows = {{"", 0},
                                               {"a", 1},
                                               {"hello", 5},
                                               {"e\u0301", 1},
                                               {"abce\u0301", 4},
                                               {"\r\n", 1},
                                               {"a\r\nb", 3},
                                               {"\n\r", 2},
                                               {"\r\r\n", 2},
                                               {"\U0001F600", 1},
                                               {family, 1},
                                               {"\U0001F44D\U0001F3FD", 1},
                                               {"\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 2},
                                               {"\u0301", 1},
                                               {"a\u200D", 1},
                                               {"\u1112\u1161\u11ab", 1},
                                               {"\u00fc", 1},
                                               {"\u65e5\u672c", 2},
                                               {"1\uFE0F\u20E3", 1},
                                               {"\n\u0301", 2}};
    return rows;
}

TEST(Text, CountsUserPerceivedCharacters) {
    for (const auto& [text, count] : countRows())
        EXPECT_EQ(text::characterCount(text), count) << text;
}

TEST(Text, CountsTheSameBehindALongPlainStart) {
    const std::string start(1000, 'x');
    EXPECT_EQ(text::characterCount(start + "\u0301"), 1000U);
    EXPECT_EQ(text::characterCount(start + "\r\n"), 1001U);
    EXPECT_EQ(text::characterCount(start + family + "y"), 1002U);
}

TEST(Text, CountingStopsAtItsLimit) {
    for (const auto& [text, count] : countRows())
        for (std::size_t limit = 0; limit < 7; ++limit)
            EXPECT_EQ(text::characterCountUpTo(text, limit), std::min(count, limit))
                << text << " to " << limit;
}

TEST(Text, APrefixNeverCutsACharacter) {
    EXPECT_EQ(text::prefix("hello", 3), "hel");
    EXPECT_EQ(text::prefix("hello", 9), "hello");
    EXPECT_EQ(text::prefix("hello", 0), "");
    EXPECT_EQ(text::prefix("cafe\u0301!", 4), "cafe\u0301");
    EXPECT_EQ(text::prefix("a\r\nb", 2), "a\r\n");
    EXPECT_EQ(text::prefix(std::string(family) + "x", 1), family);
}

TEST(Text, CharacterEndsAreWherePrefixesEnd) {
    for (const auto& [text, count] : countRows()) {
        const auto ends = text::characterEnds(text, 100);
        ASSERT_EQ(ends.size(), count) << text;
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_EQ(ends[i], text::prefix(text, i + 1).size()) << text;
    }
    EXPECT_EQ(text::characterEnds("abce\u0301", 2), (std::vector<std::size_t>{1, 2}));
}

TEST(Text, CountsOnSeveralThreadsAtOnce) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) EXPECT_EQ(text::characterCount(family), 1U);
        });
    for (auto& thread : threads) thread.join();
}

TEST(Text, TrimsWhiteSpaceAndNewlinesAtBothEnds) {
    for (const auto* space : {" ", "\t", "\n", "\v", "\f", "\r", "\u0085", "\u00a0", "\u1680",
                              "\u2003", "\u2028", "\u2029", "\u202f", "\u205f", "\u3000"})
        EXPECT_EQ(text::trimmed(std::string(space) + "a b" + space + space), "a b") << space;
    for (const auto* kept : {"\x08", "\x0e", "\x1f", "\u200b", "\ufeff", "\u00ad", "\xff"})
        EXPECT_EQ(text::trimmed(kept), kept) << kept;
    EXPECT_EQ(text::trimmed(" \r\n "), "");
    EXPECT_EQ(text::trimmed(""), "");
}

TEST(Text, TrimsHorizontallySpacesAndTabsOnly) {
    for (const auto* space : {" ", "\t", "\u00a0", "\u2003", "\u3000"})
        EXPECT_EQ(text::trimmedHorizontally(std::string(space) + "a" + space), "a") << space;
    for (const auto* kept : {"\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029"})
        EXPECT_EQ(text::trimmedHorizontally(kept), kept) << kept;
}

TEST(Text, LowersByTheRootLocale) {
    EXPECT_EQ(text::lowered("HELLO I"), "hello i");
    EXPECT_EQ(text::lowered("\u00dcBER \u03a3\u03a3"), "\u00fcber \u03c3\u03c2");
    EXPECT_EQ(text::lowered("\u0130"), "i\u0307");
    EXPECT_EQ(text::lowered(""), "");
}

TEST(Text, MeasuresInUtf16) {
    EXPECT_EQ(text::utf16Length(""), 0U);
    EXPECT_EQ(text::utf16Length("a\u00fc\u65e5"), 3U);
    EXPECT_EQ(text::utf16Length("\U0001F600"), 2U);
}

TEST(Text, KnowsWellFormedUtf8) {
    for (const auto* good : {"", "plain", "\u00fc\u65e5\U0001F600", "\uffff", "\U0010FFFF"})
        EXPECT_TRUE(text::isUtf8(good)) << good;
    for (const auto* bad : {"\xff", "\x80", "\xc3", "a\xe6\x97", "\xc0\xaf", "\xed\xa0\x80",
                            "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"})
        EXPECT_FALSE(text::isUtf8(bad));
    EXPECT_TRUE(text::isUtf8(std::string_view("a\0b", 3)));
}

TEST(Text, WritesTheShortestDecimal) {
    const std::pair<double, const char*> rows[] = {{1.0, "1.0"},
                                                   {0.0, "0.0"},
                                                   {-0.0, "-0.0"},
                                                   {1.5, "1.5"},
                                                   {0.1, "0.1"},
                                                   {-2.0, "-2.0"},
                                                   {1e21, "1000000000000000000000.0"},
                                                   {1e-7, "0.0000001"},
                                                   {100.25, "100.25"},
                                                   {1.0 / 3, "0.3333333333333333"}};
    for (const auto& [value, expected] : rows) EXPECT_EQ(text::decimal(value), expected);
}

TEST(Text, ADecimalReadsBackAsTheSameNumber) {
    for (const double value :
         {std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(), 0.1 + 0.2})
        EXPECT_EQ(std::strtod(text::decimal(value).c_str(), nullptr), value);
}

}  // namespace
}  // namespace sonra
