#include "search/SummarizerHelpers.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace sonra {
namespace {

using Helpers = SummarizerHelpers;

TEST(SummarizerHelpers, ListTextIsOneCleanLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"a **bold** word", "a bold word"},
        {"*single* and `tick` stay", "*single* and `tick` stay"},
        {"```sh\nls\n```", "sh ls"},
        {"see https://a.b/c?d=e, and http://x", "see and"},
        {"https:// alone", "https:// alone"},
        {"HTTPS://a.b stays", "HTTPS://a.b stays"},
        {"  many \t\r\n  blanks  ", "many blanks"},
        {"no\xC2\xA0"
         "break \xE3\x80\x80 wide",
         "no break wide"},
        {"*\n*", "* *"},
        {"***", "*"},
        {"**https://a**b** c", "c"},
    };
    for (const auto& [raw, clean] : cases) EXPECT_EQ(Helpers::cleanForList(raw), clean) << raw;
}

TEST(SummarizerHelpers, OccurrencesAreCountedWithoutOverlaps) {
    EXPECT_EQ(Helpers::countOccurrences("aa", "aaaaa"), 2U);
    EXPECT_EQ(Helpers::countOccurrences("", "abc"), 0U);
    EXPECT_EQ(Helpers::countOccurrences("a", ""), 0U);
    EXPECT_EQ(Helpers::countOccurrences("abcd", "abc"), 0U);
}

TEST(SummarizerHelpers, TheTailIsTheEndOrAll) {
    const test::TempDir dir;
    test::writeFile(dir / "f", "0123456789");
    EXPECT_EQ(Helpers::readTail(dir / "f", 4), "6789");
    EXPECT_EQ(Helpers::readTail(dir / "f", 10), "0123456789");
    EXPECT_EQ(Helpers::readTail(dir / "f", 100), "0123456789");
    EXPECT_EQ(Helpers::readTail(dir / "f", 0), "");
    EXPECT_FALSE(Helpers::readTail(dir / "none", 4));
    EXPECT_FALSE(Helpers::readTail(dir.path(), 4));
}

TEST(SummarizerHelpers, AProjectDirectorysNameIsDecoded) {
    EXPECT_EQ(Helpers::decodeCwd("-Users-me-src-tts"), "/Users/me/src/tts");
    EXPECT_EQ(Helpers::decodeCwd("plain"), "/plain");
    EXPECT_EQ(Helpers::decodeCwd("--x"), "//x");
    EXPECT_EQ(Helpers::decodeCwd("-"), "");
    EXPECT_EQ(Helpers::decodeCwd(""), "");
}

}  // namespace
}  // namespace sonra
