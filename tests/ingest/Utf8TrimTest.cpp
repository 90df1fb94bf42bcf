#include "ingest/Utf8Trim.h"

#include <gtest/gtest.h>

#include <string>

namespace sonra {
namespace {

struct TrimCase {
    const char* name;
    std::string buffer;
    std::size_t kept;
};

class Utf8Trim : public testing::TestWithParam<TrimCase> {};

TEST_P(Utf8Trim, KeepsWholeCharacters) {
    EXPECT_EQ(trimToCompleteUtf8(GetParam().buffer), GetParam().kept);
}

INSTANTIATE_TEST_SUITE_P(
    Buffers, Utf8Trim,
    testing::Values(
        TrimCase{"Empty", "", 0}, TrimCase{"Ascii", "abc", 3},
        TrimCase{"WholeTwoByteCharacter", "a\xC3\xA9", 3},
        TrimCase{"WholeThreeByteCharacter", "a\xE2\x80\xA6", 4},
        TrimCase{"WholeFourByteCharacter", "a\xF0\x9F\x98\x80", 5},
        TrimCase{"HalfTwoByteCharacter", "a\xC3", 1},
        TrimCase{"FirstTwoBytesOfThree", "a\xE2\x80", 1}, TrimCase{"FirstByteOfThree", "a\xE2", 1},
        TrimCase{"FirstThreeBytesOfFour", "a\xF0\x9F\x98", 1},
        TrimCase{"OnlyAHalfCharacter", "\xE2\x80", 0}, TrimCase{"OnlyContinuations", "\x80\x80", 2},
        TrimCase{"ThreeContinuationsAtTheStart", "\x80\x80\x80", 3},
        TrimCase{"FourContinuations", "\xF0\x80\x80\x80\x80", 5},
        TrimCase{"FourContinuationsBehindText", "ab\x80\x80\x80\x80", 6},
        TrimCase{"TooManyContinuationsForTheLead", "a\xC3\xA9\x80", 4},
        TrimCase{"ContinuationBehindAscii", "a\x80", 2}, TrimCase{"NoLeadByte", "ab\xFF", 3},
        TrimCase{"NoLeadByteWithContinuations", "ab\xF8\x80", 4}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace sonra
