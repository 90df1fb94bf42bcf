#include "ingest/Timestamp.h"

#include <gtest/gtest.h>

#include <string>

namespace sonra {
namespace {

constexpr std::int64_t mayFirst = 1777629600;  // 2026-05-01T10:00:00Z

struct TimeCase {
    std::string text;
    std::int64_t microseconds;
};

void PrintTo(const TimeCase& row, std::ostream* out) {
    *out << row.text;
}

std::int64_t parsed(const Json& value) {
    return parseTimestamp(&value).time_since_epoch().count();
}

class ValidTimestamp : public testing::TestWithParam<TimeCase> {};

TEST_P(ValidTimestamp, IsRead) {
    EXPECT_EQ(parsed(GetParam().text), GetParam().microseconds);
}

INSTANTIATE_TEST_SUITE_P(
    Timestamps, ValidTimestamp,
    testing::Values(TimeCase{"2026-05-01T10:00:00.000Z", mayFirst * 1000000},
                    TimeCase{"2026-05-01T10:00:00Z", mayFirst * 1000000},
                    TimeCase{"2026-05-01T10:00:00.5Z", mayFirst * 1000000 + 500000},
                    TimeCase{"2026-05-01T10:00:00.123456Z", mayFirst * 1000000 + 123456},
                    TimeCase{"2026-05-01T10:00:00.123456789Z", mayFirst * 1000000 + 123456},
                    TimeCase{"2026-05-01T12:00:00+02:00", mayFirst * 1000000},
                    TimeCase{"2026-05-01T12:00:00.250+0200", mayFirst * 1000000 + 250000},
                    TimeCase{"2026-05-01T04:30:00-05:30", mayFirst * 1000000},
                    TimeCase{"2024-02-29T00:00:00Z", 1709164800LL * 1000000},
                    TimeCase{"1969-12-31T23:59:59Z", -1000000},
                    TimeCase{"9999-12-31T23:59:59Z", 253402300799LL * 1000000}));

class InvalidTimestamp : public testing::TestWithParam<std::string> {};

TEST_P(InvalidTimestamp, IsTheMomentOf1970) {
    EXPECT_EQ(parsed(GetParam()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Timestamps, InvalidTimestamp,
    testing::Values("", "nonsense", "2026-05-01", "2026-05-01T10:00:00", "2026-05-01 10:00:00Z",
                    "2026-02-29T10:00:00Z", "2026-13-01T10:00:00Z", "2026-00-01T10:00:00Z",
                    "2026-05-00T10:00:00Z", "2026-04-31T10:00:00Z", "2026-05-01T24:00:00Z",
                    "2026-05-01T10:60:00Z", "2026-05-01T10:00:60Z", "2026-05-01T10:00:00.Z",
                    "2026-05-01T10:00:00.1234567890Z", "2026-05-01T10:00:00,5Z",
                    "2026-05-01T10:00:00Z ", " 2026-05-01T10:00:00Z", "2026-05-01T10:00:00ZZ",
                    "2026-05-01T10:00:00+2:00", "2026-05-01T10:00:00+02",
                    "2026-05-01T10:00:00+24:00", "2026-05-01T10:00:00+02:60", "2026-05-01T10:00Z",
                    "26-05-01T10:00:00Z", "+2026-05-01T10:00:00Z", "2026-5-1T10:00:00Z",
                    "20260501T100000Z", "2026-05-01T1\xC2\xB2:00:00Z"));

TEST(Timestamp, IsTheMomentOf1970ForValuesThatAreNoText) {
    EXPECT_EQ(parseTimestamp(nullptr), Timestamp{});
    EXPECT_EQ(parsed(Json(1777629600)), 0);
    EXPECT_EQ(parsed(Json(nullptr)), 0);
    EXPECT_EQ(parsed(Json::array({"2026-05-01T10:00:00Z"})), 0);
}

}  // namespace
}  // namespace sonra
