#include "ingest/ClineText.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using ClineText::numberText;
using ClineText::stripToolUseXml;

struct Row {
    const char* name;
    std::string text;
    std::string stripped;
};

class ClineMarks : public testing::TestWithParam<Row> {};

TEST_P(ClineMarks, AreTakenOut) {
    EXPECT_EQ(stripToolUseXml(GetParam().text), GetParam().stripped);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ClineMarks,
    testing::Values(
        Row{"Plain", "a < b > c", "a < b > c"},
        Row{"Call", "a<read_file><path>x</path></read_file>b", "a b"},
        Row{"CallWithAttributes", "a<read_file n=\"1\">x</read_file>b", "a b"},
        Row{"LineFeeds", "a<thinking>\nx\n</thinking>b", "a b"},
        Row{"AnyCase", "a<Thinking>x</THINKING>b", "a b"},
        Row{"KelvinSignAndLongS", "a<thin\u212Aing>x</thinking>b<li\u017Ft_files>y</list_files>",
            "a b "},
        Row{"FirstEnd", "a<thinking>x</thinking>b</thinking>c", "a b</thinking>c"},
        Row{"TwoCalls", "<thinking>x</thinking>b<thinking>y</thinking>", " b "},
        Row{"Unclosed", "a<thinking>b", "a<thinking>b"},
        Row{"UnclosedTag", "a<thinking b</thinking", "a<thinking b</thinking"},
        Row{"OpenedTwice", "a<thinking>x<thinking>y</thinking>b</thinking>", "a b</thinking>"},
        Row{"LongerName", "<thinkings>x</thinkings>", "<thinkings>x</thinkings>"},
        Row{"NameGoesOnWithADigit", "<thinking2>x</thinking>", "<thinking2>x</thinking>"},
        Row{"NameGoesOnWithAnAccent", "<thinking\u0301>x</thinking>",
            "<thinking\u0301>x</thinking>"},
        Row{"NameEndsAtAHyphen", "<thinking-x>x</thinking>", " "},
        Row{"BracketInAnAttribute", "<read_file a=\">\">x</read_file>b", " b"},
        Row{"ClosingWithABlank", "<thinking>x</thinking >", "<thinking>x</thinking >"},
        Row{"Question", "<ask_followup_question>Which?</ask_followup_question>", " Which? "},
        Row{"Result", "a<result>b</result>c", "a b c"},
        Row{"Nested", "<attempt_completion>\n<result>\nDone.\n</result>\n</attempt_completion>",
            " \n \nDone.\n \n "},
        Row{"ResultInAResult", "<result><result>a</result></result>", "  a  "},
        Row{"CallInAResult", "<result>a<thinking>x</thinking>b</result>", " a b "},
        Row{"UnknownTag", "<b>a</b>", "<b>a</b>"}),
    [](const auto& row) { return row.param.name; });

TEST(ClineText, StopsAfterFivePasses) {
    std::string nested = "a";
    for (int i = 0; i < 7; ++i) nested = "<result>" + nested + "</result>";
    // Each pass takes the outermost opening with the first closing.
    EXPECT_NE(stripToolUseXml(nested).find("result>"), std::string::npos);
    std::string fewer = "a";
    for (int i = 0; i < 5; ++i) fewer = "<result>" + fewer + "</result>";
    EXPECT_EQ(stripToolUseXml(fewer).find("result>"), std::string::npos);
}

TEST(ClineText, TakesUnclosedTagsByTheThousandInStride) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += "<thinking>";
    EXPECT_EQ(stripToolUseXml(text), text);
    std::string brackets(500000, '<');
    EXPECT_EQ(stripToolUseXml(brackets), brackets);
}

TEST(ClineText, CollapsesEveryWhiteSpaceIntoOneBlank) {
    EXPECT_EQ(ClineText::collapseWhitespace("a \t\r\n\v\f b\u00a0\u2003\u3000c\u0085"), "a b c ");
    EXPECT_EQ(ClineText::collapseWhitespace("abc\u200b"), "abc\u200b");
    EXPECT_EQ(ClineText::collapseWhitespace("a\xFF  b"), "a\xFF b");
}

TEST(ClineText, WritesNumbersAsJavaScriptDoes) {
    EXPECT_EQ(numberText(0), "");
    EXPECT_EQ(numberText(2000), "2000");
    EXPECT_EQ(numberText(-2000), "-2000");
    EXPECT_EQ(numberText(1783376868634.0), "1783376868634");
    EXPECT_EQ(numberText(9006999999999999.0), "9006999999999999");
    EXPECT_EQ(numberText(9007199254740992.0), "9007199254740992");
    EXPECT_EQ(numberText(1e20), "100000000000000000000");
    EXPECT_EQ(numberText(1e21), "1e+21");
    EXPECT_EQ(numberText(1.5e300), "1.5e+300");
    EXPECT_EQ(numberText(0.5), "0.5");
    EXPECT_EQ(numberText(1783376868634.25), "1783376868634.25");
    EXPECT_EQ(numberText(0.000001), "0.000001");
    EXPECT_EQ(numberText(0.00000012), "1.2e-7");
    EXPECT_EQ(numberText(-12.75), "-12.75");
}

}  // namespace
}  // namespace sonra
