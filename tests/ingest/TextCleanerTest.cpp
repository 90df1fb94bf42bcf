#include "ingest/TextCleaner.h"

#include <gtest/gtest.h>

#include <chrono>

namespace sonra {
namespace {

using TextCleaner::cleanForSpeech;

struct CleaningCase {
    std::string text;
    std::string cleaned;
};

void PrintTo(const CleaningCase& row, std::ostream* out) {
    *out << row.text;
}

class Cleaning : public testing::TestWithParam<CleaningCase> {};

TEST_P(Cleaning, LeavesOnlyWhatIsSpoken) {
    EXPECT_EQ(cleanForSpeech(GetParam().text), GetParam().cleaned);
}

INSTANTIATE_TEST_SUITE_P(
    Code, Cleaning,
    testing::Values(CleaningCase{"Before. ```\nlet x = 1\nlet y = 2\n``` After.",
                                 "Before.  code block.  After."},
                    CleaningCase{"```js\nconst x = 1;\n```", "code block."},
                    CleaningCase{"text ```block1``` middle ```block2``` end",
                                 "text  code block.  middle  code block.  end"},
                    CleaningCase{"``````", "code block."},
                    CleaningCase{"```a````b`c", "code block. c"},
                    CleaningCase{"an open ``` fence", "an open ` fence"},
                    CleaningCase{"Use the `fooBar()` function to initialize.",
                                 "Use the  function to initialize."},
                    CleaningCase{"an empty `` span", "an empty  span"},
                    CleaningCase{"an open ` mark", "an open ` mark"},
                    CleaningCase{"across `a\nb` lines", "across  lines"}));

INSTANTIATE_TEST_SUITE_P(
    LinksAndImages, Cleaning,
    testing::Values(CleaningCase{"![ alt text](img.png) some text", "some text"},
                    CleaningCase{"an image ![](a.png) without a name", "an image  without a name"},
                    CleaningCase{"See the [official docs](docs/index.html) for more.",
                                 "See the official docs for more."},
                    CleaningCase{"[label]() [](target) [label] (target)",
                                 "label [](target) [label] (target)"},
                    CleaningCase{"[[a](b)", "[a"}, CleaningCase{"[a]b](c)", "[a]b](c)"},
                    CleaningCase{"[a][b](c)", "[a]b"}, CleaningCase{"![a][b](c)", "![a]b"},
                    CleaningCase{"[open](https://host/a b", "[open]( b"},
                    CleaningCase{"Visit https://host/path?q=1 for details.", "Visit  for details."},
                    CleaningCase{"http://a\u00a0http://b\u2028https://c", ""},
                    CleaningCase{"Visit HTTPS://host or https:// or ftp://host",
                                 "Visit HTTPS://host or https:// or ftp://host"},
                    CleaningCase{"xhttps://host httpss://host", "x httpss://host"},
                    CleaningCase{"See [https://a](https://b).", "See"}));

INSTANTIATE_TEST_SUITE_P(
    Emphasis, Cleaning,
    testing::Values(
        CleaningCase{"This is **important** text here.", "This is important text here."},
        CleaningCase{"This is *emphasized* text here.", "This is emphasized text here."},
        CleaningCase{"*emphasized* at start", "emphasized at start"},
        CleaningCase{"This **bold** and *italic* text mixed.", "This bold and italic text mixed."},
        CleaningCase{"Before *not\nmatched* after.", "Before *not\nmatched* after."},
        CleaningCase{"Before **bold\nbold** after.", "Before bold\nbold after."},
        CleaningCase{"***both*** and ****", "both and ****"}, CleaningCase{"2 * 3 * 4", "2  3  4"},
        CleaningCase{"a ** b", "a ** b"}, CleaningCase{"**a* b**", "**a* b**"}));

INSTANTIATE_TEST_SUITE_P(
    Lines, Cleaning,
    testing::Values(
        CleaningCase{"## Section Title\nSome content here.", "Section Title\nSome content here."},
        CleaningCase{"# H1\n## H2\n### H3\nContent.", "H1\nH2\nH3\nContent."},
        CleaningCase{"issue #5 and C# are\n#hashes", "issue #5 and C# are\n#hashes"},
        CleaningCase{"# # two", "# two"}, CleaningCase{"#\n\n# two", "two"},
        CleaningCase{"one\r## two\u2028# three\u0085# four", "one\rtwo\u2028three\u0085four"},
        CleaningCase{"- First item\n* Second item\n+ Third item",
                     "First item\nSecond item\nThird item"},
        CleaningCase{"a - b\n-c\n  - d", "a - b\n-c\n  - d"},
        CleaningCase{"Para one.\n\n\n\nPara two.", "Para one.\n\nPara two."},
        CleaningCase{"a\n\nb\n\n\nc", "a\n\nb\n\nc"},
        CleaningCase{" \t\u00a0\u2029 padded \u0085\n", "padded"}));

INSTANTIATE_TEST_SUITE_P(
    WholeTexts, Cleaning,
    testing::Values(
        CleaningCase{"Hello, world! This is plain text.", "Hello, world! This is plain text."},
        CleaningCase{"## Overview\nUse **bold** and *italic* or `code`. See [link](a.html) and "
                     "![img](a.png).\n\n\nDone.",
                     "Overview\nUse bold and italic or . See link and .\n\nDone."},
        CleaningCase{"![only](an-image.png)", ""}, CleaningCase{"https://only.an/address", ""},
        CleaningCase{"", ""},
        CleaningCase{"&amp; 1. one | two | THREE", "&amp; 1. one | two | THREE"}));

TEST(TextCleaner, SurvivesBytesThatAreNotUtf8) {
    EXPECT_EQ(cleanForSpeech("**\xFF** https://\xE2\x80 x \xC2"), "\xFF  x \xC2");
    const std::string zeros("a\0*b*\0", 6);
    EXPECT_EQ(cleanForSpeech(zeros), std::string("a\0b\0", 4));
}

class HostileText : public testing::TestWithParam<std::string> {};

TEST_P(HostileText, IsCleanedInLinearTime) {
    constexpr std::size_t megabyte = 1 << 20;
    std::string text;
    text.reserve(megabyte + 64);
    while (text.size() < megabyte) text += GetParam();
    const auto start = std::chrono::steady_clock::now();
    for (const auto* ending : {"", "](x)"}) cleanForSpeech(text + ending);
    // Well under a second each, a few under a sanitizer; a quadratic walk takes a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

INSTANTIATE_TEST_SUITE_P(Units, HostileText,
                         testing::Values("[", "]", "![", "![a", "[a", "[]", "[](", "[a](", "![](",
                                         "](", "`", "` ", "```x", "````", "*", "**", "**a", "*a",
                                         "*a\n", "***a", "#", "#\n", "\n#", "# #", "-", "- ", "-\n",
                                         "+", "\n", "\r\n", " ", "\u2028", "https://", "https:// ",
                                         "https", "http", "://", "h", "!", "\n\n\n", "a\n\n\n",
                                         "\x80", "\xE2\x80"));

}  // namespace
}  // namespace sonra
