#include "ingest/TailOffset.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

TEST(TailOffset, AdvancesBytesByReplacement) {
    EXPECT_EQ(TailOffset::byte(10).advanced(TailOffset::byte(5)), TailOffset::byte(5));
    EXPECT_EQ(TailOffset::byte(10).advanced(TailOffset::byte(15)), TailOffset::byte(15));
}

TEST(TailOffset, AdvancesMessageIndexesByReplacement) {
    EXPECT_EQ(TailOffset::messageIndex(10).advanced(TailOffset::messageIndex(5)),
              TailOffset::messageIndex(5));
}

TEST(TailOffset, NeverMovesTimeBackward) {
    EXPECT_EQ(TailOffset::unixMs(5000).advanced(TailOffset::unixMs(3000)),
              TailOffset::unixMs(5000));
    EXPECT_EQ(TailOffset::unixMs(3000).advanced(TailOffset::unixMs(5000)),
              TailOffset::unixMs(5000));
}

TEST(TailOffset, ComparesTimesWhateverTheyCountIn) {
    const auto ms = TailOffset::unixMs(1'785'000'000'000);
    const auto later = TailOffset::unixMs(1'785'000'000'001'001);
    EXPECT_EQ(ms.advanced(later), later);
    EXPECT_EQ(later.advanced(ms), later);
    EXPECT_EQ(later.advanced(TailOffset::unixMs(1'785'000'000'002)).intValue(), 1'785'000'000'002);
    EXPECT_EQ(TailOffset::unixMs(0).advanced(later), later);
}

TEST(TailOffset, ConvertsTimes) {
    const auto ms = TailOffset::unixMs(1'785'000'000'000);
    const auto thousandths = TailOffset::unixMs(1'785'000'000'000'999);
    EXPECT_EQ(ms.inThousandths(true), thousandths);
    EXPECT_EQ(ms.inThousandths(false), ms);
    EXPECT_EQ(thousandths.inThousandths(false), ms);
    EXPECT_EQ(thousandths.inThousandths(true), thousandths);
    EXPECT_EQ(TailOffset::unixMs(0).inThousandths(true), TailOffset::unixMs(0));
    EXPECT_EQ(TailOffset::byte(7).inThousandths(true), TailOffset::byte(7));
}

TEST(TailOffset, TakesTheOtherWhenKindsDiffer) {
    EXPECT_EQ(TailOffset::unixMs(5000).advanced(TailOffset::byte(3)), TailOffset::byte(3));
    EXPECT_EQ(TailOffset::byte(9).advanced(TailOffset::unixMs(3)), TailOffset::unixMs(3));
    EXPECT_EQ(TailOffset::byte(9).advanced(TailOffset::messageIndex(3)),
              TailOffset::messageIndex(3));
}

TEST(TailOffset, ComparesByKindAndPayload) {
    EXPECT_NE(TailOffset::byte(7), TailOffset::messageIndex(7));
    EXPECT_NE(TailOffset::byte(7), TailOffset::byte(8));
    EXPECT_EQ(TailOffset::unixMs(7), TailOffset::unixMs(7));
}

TEST(TailOffset, GivesItsPayloadWhateverTheKind) {
    EXPECT_EQ(TailOffset::byte(7).intValue(), 7);
    EXPECT_EQ(TailOffset::messageIndex(8).intValue(), 8);
    EXPECT_EQ(TailOffset::unixMs(9).intValue(), 9);
}

}  // namespace
}  // namespace sonra
