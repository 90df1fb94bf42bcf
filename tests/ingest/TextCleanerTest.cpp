#include "ingest/TextCleaner.h"

#include <gtest/gtest.h>

#include <chrono>

namespace sonra {
namespace {

using TextCleaner::cleanForSpeech;

struct CleaningCase {
    std::string name;
    std::string text;
    std::string cleaned;
};

void PrintTo(const CleaningCase& row, std::ostream* out) {
    *out << row.text;
}

template <typename Row>
std::string nameOf(const testing::TestParamInfo<Row>& row) {
    return row.param.name;
}

class Cleaning : public testing::TestWithParam<CleaningCase> {};

TEST_P(Cleaning, LeavesOnlyWhatIsSpoken) {
    EXPECT_EQ(cleanForSpeech(GetParam().text), GetParam().cleaned);
}

INSTANTIATE_TEST_SUITE_P(
    Code, Cleaning,
    testing::Values(
        CleaningCase{"FencedBlockInAParagraph", "Before. ```\nlet x = 1\nlet y = 2\n``` After.",
                     "Before.  code block.  After."},
        CleaningCase{"FencedBlockWithALanguage", "```js\nconst x = 1;\n```", "code block."},
        CleaningCase{"TwoFencedBlocks", "text ```block1``` middle ```block2``` end",
                     "text  code block.  middle  code block.  end"},
        CleaningCase{"EmptyFence", "``````", "code block."},
        CleaningCase{"FenceEndsAtTheFirstThreeMarks", "```a````b`c", "code block. c"},
        CleaningCase{"FenceThatStaysOpen", "an open ``` fence", "an open ` fence"},
        CleaningCase{"InlineSpan", "Use the `fooBar()` function to initialize.",
                     "Use the  function to initialize."},
        CleaningCase{"EmptySpan", "an empty `` span", "an empty  span"},
        CleaningCase{"MarkThatStaysOpen", "an open ` mark", "an open ` mark"},
        CleaningCase{"SpanAcrossLines", "across `a\nb` lines", "across  lines"}),
    nameOf<CleaningCase>);

INSTANTIATE_TEST_SUITE_P(
    LinksAndImages, Cleaning,
    testing::Values(
        CleaningCase{"Image", "![ alt text](img.png) some text", "some text"},
        CleaningCase{"ImageWithoutAName", "an image ![](a.png) without a name",
                     "an image  without a name"},
        CleaningCase{"LinkBecomesItsLabel", "See the [official docs](docs/index.html) for more.",
                     "See the official docs for more."},
        CleaningCase{"LinkWithoutATarget", "[label]() [](target) [label] (target)",
                     "label [](target) [label] (target)"},
        CleaningCase{"BracketInALabel", "[[a](b)", "[a"},
        CleaningCase{"LabelThatEndsEarly", "[a]b](c)", "[a]b](c)"},
        CleaningCase{"LabelBeforeALink", "[a][b](c)", "[a]b"},
        CleaningCase{"ImageWithTwoLabels", "![a][b](c)", "![a]b"},
        CleaningCase{"AddressEndsATargetThatStaysOpen", "[open](https://host/a b", "[open]( b"},
        CleaningCase{"AddressWithAQuery", "Visit https://host/path?q=1 for details.",
                     "Visit  for details."},
        CleaningCase{"AddressesEndAtAnySpace", "http://a\u00a0http://b\u2028https://c", ""},
        CleaningCase{"OtherSchemesStay", "Visit HTTPS://host or https:// or ftp://host",
                     "Visit HTTPS://host or https:// or ftp://host"},
        CleaningCase{"AddressInsideAWord", "xhttps://host httpss://host", "x httpss://host"},
        CleaningCase{"AddressAsALabel", "See [https://a](https://b).", "See"}),
    nameOf<CleaningCase>);

INSTANTIATE_TEST_SUITE_P(
    Emphasis, Cleaning,
    testing::Values(
        CleaningCase{"Bold", "This is **important** text here.", "This is important text here."},
        CleaningCase{"Italic", "This is *emphasized* text here.", "This is emphasized text here."},
        CleaningCase{"ItalicAtTheStart", "*emphasized* at start", "emphasized at start"},
        CleaningCase{"BoldAndItalic", "This **bold** and *italic* text mixed.",
                     "This bold and italic text mixed."},
        CleaningCase{"ItalicEndsWithItsLine", "Before *not\nmatched* after.",
                     "Before *not\nmatched* after."},
        CleaningCase{"BoldAcrossLines", "Before **bold\nbold** after.", "Before bold\nbold after."},
        CleaningCase{"BothAtOnce", "***both*** and ****", "both and ****"},
        CleaningCase{"StarsOfAProduct", "2 * 3 * 4", "2  3  4"},
        CleaningCase{"StarsApart", "a ** b", "a ** b"},
        CleaningCase{"ItalicInsideBold", "**a* b**", "**a* b**"}),
    nameOf<CleaningCase>);

INSTANTIATE_TEST_SUITE_P(
    Lines, Cleaning,
    testing::Values(CleaningCase{"Heading", "## Section Title\nSome content here.",
                                 "Section Title\nSome content here."},
                    CleaningCase{"HeadingsOfAllLevels", "# H1\n## H2\n### H3\nContent.",
                                 "H1\nH2\nH3\nContent."},
                    CleaningCase{"HashesThatAreNoHeadings", "issue #5 and C# are\n#hashes",
                                 "issue #5 and C# are\n#hashes"},
                    CleaningCase{"HeadingInAHeading", "# # two", "# two"},
                    CleaningCase{"HeadingTakesTheLinesBehindIt", "#\n\n# two", "two"},
                    CleaningCase{"HeadingsAfterAnyLineEnd", "one\r## two\u2028# three\u0085# four",
                                 "one\rtwo\u2028three\u0085four"},
                    CleaningCase{"BulletsOfAllKinds", "- First item\n* Second item\n+ Third item",
                                 "First item\nSecond item\nThird item"},
                    CleaningCase{"DashesThatAreNoBullets", "a - b\n-c\n  - d", "a - b\n-c\n  - d"},
                    CleaningCase{"FourLineFeedsBecomeTwo", "Para one.\n\n\n\nPara two.",
                                 "Para one.\n\nPara two."},
                    CleaningCase{"TwoLineFeedsStay", "a\n\nb\n\n\nc", "a\n\nb\n\nc"},
                    CleaningCase{"OuterSpaceOfAnyKind", " \t\u00a0\u2029 padded \u0085\n",
                                 "padded"}),
    nameOf<CleaningCase>);

INSTANTIATE_TEST_SUITE_P(
    WholeTexts, Cleaning,
    testing::Values(CleaningCase{"PlainText", "Hello, world! This is plain text.",
                                 "Hello, world! This is plain text."},
                    CleaningCase{
                        "EverythingTogether",
                        "## Overview\nUse **bold** and *italic* or `code`. See [link](a.html) and "
                        "![img](a.png).\n\n\nDone.",
                        "Overview\nUse bold and italic or . See link and .\n\nDone."},
                    CleaningCase{"OnlyAnImage", "![only](an-image.png)", ""},
                    CleaningCase{"OnlyAnAddress", "https://only.an/address", ""},
                    CleaningCase{"Nothing", "", ""},
                    CleaningCase{"EntitiesNumbersAndTablesStay", "&amp; 1. one | two | THREE",
                                 "&amp; 1. one | two | THREE"}),
    nameOf<CleaningCase>);

TEST(TextCleaner, SurvivesBytesThatAreNotUtf8) {
    EXPECT_EQ(cleanForSpeech("**\xFF** https://\xE2\x80 x \xC2"), "\xFF  x \xC2");
    const std::string zeros("a\0*b*\0", 6);
    EXPECT_EQ(cleanForSpeech(zeros), std::string("a\0b\0", 4));
}

/// What a hostile text repeats.
struct Unit {
    std::string name;
    std::string text;
};

void PrintTo(const Unit& unit, std::ostream* out) {
    *out << testing::PrintToString(unit.text);
}

class HostileText : public testing::TestWithParam<Unit> {};

TEST_P(HostileText, IsCleanedInLinearTime) {
    constexpr std::size_t megabyte = 1 << 20;
    std::string text;
    text.reserve(megabyte + 64);
    while (text.size() < megabyte) text += GetParam().text;
    const auto start = std::chrono::steady_clock::now();
    for (const auto* ending : {"", "](x)"}) cleanForSpeech(text + ending);
    // Well under a second each, a few under a sanitizer; a quadratic walk takes a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

INSTANTIATE_TEST_SUITE_P(
    Units, HostileText,
    testing::Values(
        Unit{"OpeningBrackets", "["}, Unit{"ClosingBrackets", "]"}, Unit{"OpenImages", "!["},
        Unit{"NamedOpenImages", "![a"}, Unit{"NamedOpenLabels", "[a"}, Unit{"EmptyLabels", "[]"},
        Unit{"EmptyLabelsWithOpenTargets", "[]("}, Unit{"LabelsWithOpenTargets", "[a]("},
        Unit{"ImagesWithOpenTargets", "![]("}, Unit{"OpenTargets", "]("}, Unit{"Marks", "`"},
        Unit{"SpacedMarks", "` "}, Unit{"OpenFences", "```x"}, Unit{"FourMarks", "````"},
        Unit{"Stars", "*"}, Unit{"DoubleStars", "**"}, Unit{"OpenBold", "**a"},
        Unit{"OpenItalic", "*a"}, Unit{"OpenItalicOnEachLine", "*a\n"},
        Unit{"OpenBoldItalic", "***a"}, Unit{"Hashes", "#"}, Unit{"HashLines", "#\n"},
        Unit{"LinesOfAHash", "\n#"}, Unit{"HashesApart", "# #"}, Unit{"Dashes", "-"},
        Unit{"DashesApart", "- "}, Unit{"DashLines", "-\n"}, Unit{"Pluses", "+"},
        Unit{"LineFeeds", "\n"}, Unit{"CarriageReturns", "\r\n"}, Unit{"Spaces", " "},
        Unit{"LineSeparators", "\u2028"}, Unit{"Addresses", "https://"},
        Unit{"AddressesApart", "https:// "}, Unit{"Schemes", "https"}, Unit{"OtherSchemes", "http"},
        Unit{"SchemeEnds", "://"}, Unit{"BeginningsOfSchemes", "h"}, Unit{"Exclamations", "!"},
        Unit{"Paragraphs", "\n\n\n"}, Unit{"WordsInParagraphs", "a\n\n\n"},
        Unit{"StrayBytes", "\x80"}, Unit{"CutCharacters", "\xE2\x80"}),
    nameOf<Unit>);

}  // namespace
}  // namespace sonra
