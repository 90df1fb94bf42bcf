#include "frame/UniqueName.h"

#include <gtest/gtest.h>

#include <set>

namespace sonra {
namespace {

TEST(UniqueName, SuffixesAreEightUpperCaseDigitsAndDiffer) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const auto suffix = uniqueSuffix();
        EXPECT_EQ(suffix.size(), 8U);
        EXPECT_EQ(suffix.find_first_not_of("0123456789ABCDEF"), std::string::npos);
        seen.insert(suffix);
    }
    EXPECT_GT(seen.size(), 198U);
}

TEST(UniqueName, OrdinaryIdsStayAsTheyAre) {
    for (const auto* id : {"0b6f7f1d-aaaa", "ses_1", "a.b", "...", "größe"})
        EXPECT_EQ(safeFileName(id), id);
    EXPECT_EQ(safeFileName(std::string(100, 'x')), std::string(100, 'x'));
}

TEST(UniqueName, DangerousIdsBecomeDigests) {
    const std::set<std::string> ids{
        "", ".", "..", "../../etc", "a/b", std::string("a\0b", 3), "a\nb", std::string(101, 'x')};
    std::set<std::string> names;
    for (const auto& id : ids) {
        const auto name = safeFileName(id);
        EXPECT_EQ(name.size(), 16U) << id;
        EXPECT_EQ(name.find('/'), std::string::npos);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), ids.size());
    EXPECT_EQ(safeFileName(""), "e3b0c44298fc1c14");
}

}  // namespace
}  // namespace sonra
