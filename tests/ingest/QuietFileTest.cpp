#include "ingest/QuietFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TempDir.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// Whether a file is quiet that was written to this long before now.
bool isQuietAfter(std::chrono::milliseconds age) {
    const test::TempDir dir;
    test::writeFile(dir / "f", "x");
    const auto written = std::filesystem::last_write_time(dir / "f");
    const auto now = std::chrono::file_clock::to_sys(written) + age;
    return QuietFile([now] {
               return std::chrono::time_point_cast<std::chrono::system_clock::duration>(now);
           })
        .isQuiet(dir / "f");
}

TEST(QuietFile, IsQuietAfterASecondAndAHalf) {
    EXPECT_FALSE(isQuietAfter(0ms));
    EXPECT_FALSE(isQuietAfter(1499ms));
    EXPECT_TRUE(isQuietAfter(1500ms));
    EXPECT_TRUE(isQuietAfter(24h));
}

TEST(QuietFile, TimeInTheFutureIsNoReasonToWaitForever) {
    EXPECT_FALSE(isQuietAfter(-1400ms));
    EXPECT_TRUE(isQuietAfter(-1h));
}

TEST(QuietFile, MissingFileIsQuiet) {
    EXPECT_TRUE(QuietFile().isQuiet("/nowhere/at/all"));
}

}  // namespace
}  // namespace sonra
