#include "search/ParsedQuery.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using Tokens = std::vector<std::string>;

TEST(ParseQuery, NothingAsksForNothing) {
    for (const auto* text : {"", "   ", "\n\t ", "\xE3\x80\x80"})
        EXPECT_TRUE(parseQuery(text).empty());
}

TEST(ParseQuery, TokensAreCutAtBlanksAndTabsOnly) {
    EXPECT_EQ(parseQuery("  One two\t\tTHREE ").plain, (Tokens{"one", "two", "three"}));
    EXPECT_EQ(parseQuery("one\ntwo").plain, (Tokens{"one\ntwo"}));
    EXPECT_EQ(parseQuery("a\xC2\xA0"
                         "b")
                  .plain,
              (Tokens{"a\xC2\xA0"
                      "b"}));
}

TEST(ParseQuery, ThreeKeysMakeFilters) {
    const auto query = parseQuery("PROJECT:Tts cwd:/Users session:AB project:b:c");
    EXPECT_EQ(query.projectFilters, (Tokens{"tts", "b:c"}));
    EXPECT_EQ(query.cwdFilters, (Tokens{"/users"}));
    EXPECT_EQ(query.sessionFilters, (Tokens{"ab"}));
    EXPECT_TRUE(query.plain.empty());
}

TEST(ParseQuery, AnyOtherColonStaysInItsToken) {
    EXPECT_EQ(parseQuery("foo:Bar :x project: ::").plain,
              (Tokens{"foo:bar", ":x", "project:", "::"}));
}

TEST(ParseQuery, LowerCaseKnowsEveryScript) {
    EXPECT_EQ(parseQuery("\xC3\x84RGER \xCE\xA3\xCE\x91\xCE\xA3").plain,
              (Tokens{"\xC3\xA4rger", "\xCF\x83\xCE\xB1\xCF\x82"}));
}

}  // namespace
}  // namespace sonra
