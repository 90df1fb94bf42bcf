#include "frame/Json.h"

#include <gtest/gtest.h>

#include <limits>

namespace sonra {
namespace {

std::string nestedArrays(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') +
           std::string(static_cast<std::size_t>(depth), ']');
}

TEST(Json, ReadsEveryKindOfValue) {
    for (const auto* text :
         {"null", "true", "-1", "2.5", "\"s\"", "[]", "{}", " [1, {\"a\":[]}] \n"})
        EXPECT_EQ(json::parse(text), Json::parse(text)) << text;
}

TEST(Json, RefusesWhatIsNoJson) {
    for (const auto* text :
         {"",    " ",       "{",        "[1,]",         "{\"a\"}",          "{'a':1}",   "nul",
          "01",  "1 2",     "[1]]",     "\"a",          "\"\\x\"",          "\"\\u12\"", "\"\t\"",
          "NaN", "// c\n1", "\"\xff\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "]["})
        EXPECT_EQ(json::parse(text), std::nullopt) << text;
}

TEST(Json, RefusesAZeroByteWhereverItStands) {
    for (const std::string_view text : {std::string_view("{}\0", 3), std::string_view("{}\0x", 4),
                                        std::string_view("\"a\0b\"", 5), std::string_view("\0", 1)})
        EXPECT_EQ(json::parse(text), std::nullopt);
}

TEST(Json, OfDuplicateKeysTheLastWins) {
    EXPECT_EQ(json::parse(R"({"a":1,"b":2,"a":{"c":3}})"), Json({{"a", {{"c", 3}}}, {"b", 2}}));
}

TEST(Json, ALoneSurrogateEscapeBecomesTheReplacementCharacter) {
    const std::pair<const char*, const char*> rows[] = {
        {R"("a\ud800b")", "a\ufffdb"},       {R"("\udc00")", "\ufffd"},
        {R"("\uD83D\uDE00")", "\U0001F600"}, {R"("\ud800\ud800\udc00")", "\ufffd\U00010000"},
        {R"("\ud83d\n")", "\ufffd\n"},       {R"("\ud83d\u0041")", "\ufffdA"},
        {R"("\\ud800")", "\\ud800"},         {R"("\\\ud800")", "\\\ufffd"},
        {R"("\"\udfff\"")", "\"\ufffd\""}};
    for (const auto& [text, expected] : rows) EXPECT_EQ(json::parse(text), Json(expected)) << text;
    EXPECT_EQ(json::parse(R"({"k\ud800":["\udbff"]})"), Json({{"k\ufffd", {"\ufffd"}}}));
}

TEST(Json, LimitsItsDepth) {
    EXPECT_TRUE(json::parse(nestedArrays(json::maxDepth)));
    EXPECT_FALSE(json::parse(nestedArrays(json::maxDepth + 1)));
    EXPECT_FALSE(json::parse(std::string(1'000'000, '[')));
    EXPECT_FALSE(json::parse(std::string(1'000'000, '{')));
    EXPECT_TRUE(json::parse("\"" + std::string(10'000, '[') + "\""))
        << "brackets in a string don't nest";
    EXPECT_TRUE(json::parse("\"\\\"" + std::string(10'000, '{') + "\""));
}

TEST(Json, ParseObjectTakesObjectsOnly) {
    EXPECT_EQ(json::parseObject(R"({"a":1})"), Json({{"a", 1}}));
    for (const auto* text : {"[]", "1", "null", "\"{}\"", "{"})
        EXPECT_EQ(json::parseObject(text), std::nullopt) << text;
}

TEST(Json, WritesOneLineSortedWithSlashesAsTheyAre) {
    EXPECT_EQ(json::dump({{"b", "/x\n"}, {"a", {1, 2.0, true, nullptr}}}),
              R"({"a":[1,2.0,true,null],"b":"/x\n"})");
    EXPECT_EQ(json::dump("\u00fc\U0001F600"), "\"\u00fc\U0001F600\"");
}

TEST(Json, WritesDoublesInTheirShortestForm) {
    EXPECT_EQ(json::dump(1.0), "1.0");
    EXPECT_EQ(json::dump(0.1), "0.1");
    EXPECT_EQ(json::dump(-0.5), "-0.5");
    EXPECT_EQ(json::dump(1e300), "1e+300");
}

TEST(Json, WritesBytesThatAreNotUtf8AsReplacements) {
    EXPECT_EQ(json::dump("a\xff"), "\"a\ufffd\"");
    EXPECT_TRUE(json::parse(json::dumpPretty({{"k\xc3", "\xed\xa0\x80"}})));
}

TEST(Json, PrettyTextIndentsByTwo) {
    EXPECT_EQ(json::dumpPretty({{"b", {1}}, {"a", Json::object()}}),
              "{\n  \"a\": {},\n  \"b\": [\n    1\n  ]\n}");
}

TEST(Json, FindsMembersOfObjectsOnly) {
    const Json object = {{"a", 1}};
    ASSERT_NE(json::find(object, "a"), nullptr);
    EXPECT_EQ(*json::find(object, "a"), 1);
    EXPECT_EQ(json::find(object, "b"), nullptr);
    for (const Json& other : {Json(), Json(5), Json("a"), Json::array({"a"})})
        EXPECT_EQ(json::find(other, "a"), nullptr);
}

TEST(Json, ABooleanIsNeverANumberNorANumberABoolean) {
    const Json object = {{"yes", true}, {"one", 1}, {"zero", 0.0}};
    EXPECT_EQ(json::intAt(object, "yes"), std::nullopt);
    EXPECT_EQ(json::doubleAt(object, "yes"), std::nullopt);
    EXPECT_EQ(json::boolAt(object, "one"), std::nullopt);
    EXPECT_EQ(json::boolAt(object, "zero"), std::nullopt);
    EXPECT_EQ(json::boolAt(object, "yes"), true);
}

TEST(Json, AWholeNumberIsAnIntegerHoweverItWasWritten) {
    const std::pair<const char*, std::optional<std::int64_t>> rows[] = {
        {"100", 100},
        {"100.0", 100},
        {"1e2", 100},
        {"-0.0", 0},
        {"100.5", std::nullopt},
        {"1e-9", std::nullopt},
        {"9223372036854775807", INT64_MAX},
        {"-9223372036854775808", INT64_MIN},
        {"9223372036854775808", std::nullopt},
        {"18446744073709551615", std::nullopt},
        {"1e19", std::nullopt},
        {"-1e19", std::nullopt},
        {"\"100\"", std::nullopt},
        {"null", std::nullopt}};
    for (const auto& [text, expected] : rows) {
        const auto value = json::parse(text);
        ASSERT_TRUE(value) << text;
        EXPECT_EQ(json::asInt(&*value), expected) << text;
    }
    const Json infinite = std::numeric_limits<double>::infinity();
    const Json nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(json::asInt(&infinite), std::nullopt);
    EXPECT_EQ(json::asInt(&nan), std::nullopt);
}

TEST(Json, EveryNumberIsADoubleAndOnlyAStringAString) {
    const Json object = {{"int", -3}, {"big", UINT64_MAX}, {"half", 0.5}, {"text", "0.5"}};
    EXPECT_EQ(json::doubleAt(object, "int"), -3.0);
    EXPECT_EQ(json::doubleAt(object, "big"), 18446744073709551615.0);
    EXPECT_EQ(json::doubleAt(object, "half"), 0.5);
    EXPECT_EQ(json::doubleAt(object, "text"), std::nullopt);
    EXPECT_EQ(json::stringAt(object, "text"), "0.5");
    EXPECT_EQ(json::stringAt(object, "int"), std::nullopt);
    EXPECT_EQ(json::stringAt(object, "missing"), std::nullopt);
    EXPECT_EQ(json::asString(nullptr), std::nullopt);
}

}  // namespace
}  // namespace sonra
