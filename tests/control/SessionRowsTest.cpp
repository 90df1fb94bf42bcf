#include "control/SessionRows.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

constexpr double now = 1'800'000'000'000;

DiscoveredRow row(const std::string& id, double ageMs, const std::string& source = "claude-code",
                  bool active = false) {
    DiscoveredRow made;
    made.id = id;
    made.source = source;
    made.mtimeMs = now - ageMs;
    made.active = active;
    return made;
}

struct CandidateCase {
    const char* name;
    std::vector<AttachedSession> attached;
    std::vector<DiscoveredRow> discovered;
    std::string expected;
};

class SoleAutoAttachCandidate : public testing::TestWithParam<CandidateCase> {};

TEST_P(SoleAutoAttachCandidate, IsTheOnlyFreshClaudeCodeRow) {
    const auto& [name, attached, discovered, expected] = GetParam();
    const auto found = SessionRows::soleAutoAttachCandidate(attached, discovered, now);
    EXPECT_EQ(found ? found->id : "", expected);
}

const double stale = SessionRows::freshForMs + 1;

INSTANTIATE_TEST_SUITE_P(
    SessionRows, SoleAutoAttachCandidate,
    testing::Values(
        CandidateCase{"OneFreshRow", {}, {row("a", 1000)}, "a"},
        CandidateCase{"ExactlyFifteenMinutesOld", {}, {row("a", SessionRows::freshForMs)}, "a"},
        CandidateCase{"SomethingAttached", {{"x", "/", "claude-code", "", ""}}, {row("a", 0)}, ""},
        CandidateCase{"TwoFreshRows", {}, {row("a", 0), row("b", 0)}, ""},
        CandidateCase{
            "TwoFreshBesideAnother", {}, {row("a", 0), row("c", 0, "codex"), row("b", 0)}, ""},
        CandidateCase{"StaleThoughActive", {}, {row("a", stale, "claude-code", true)}, ""},
        CandidateCase{"FreshThoughInactive", {}, {row("a", 5)}, "a"},
        CandidateCase{"LoneRowOfAnotherAgent", {}, {row("a", 0, "codex")}, ""},
        CandidateCase{"BesideStaleRowOfAnother", {}, {row("c", stale, "codex"), row("a", 0)}, "a"},
        CandidateCase{"BesideStaleRowOfItsOwn", {}, {row("b", stale), row("a", 0)}, "a"},
        CandidateCase{"NoRows", {}, {}, ""}),
    [](const auto& which) { return which.param.name; });

TEST(SessionRows, LatchWhenAnIdVanished) {
    const auto latch = SessionRows::shouldLatchStateLevelDetach;
    EXPECT_TRUE(latch({"a"}, {}));
    EXPECT_TRUE(latch({"a", "b"}, {"b"}));
    EXPECT_TRUE(latch({"a"}, {"b"}));
    EXPECT_FALSE(latch({"a"}, {"a"}));
    EXPECT_FALSE(latch({"a"}, {"a", "b"}));
    EXPECT_FALSE(latch({}, {"a"}));
    EXPECT_FALSE(latch({}, {}));
}

TEST(SessionRows, ProjectDirectoryName) {
    EXPECT_EQ(SessionRows::sanitizeCwd("/Users/test/proj22"), "-Users-test-proj22");
    EXPECT_EQ(SessionRows::sanitizeCwd("/"), "-");
    EXPECT_EQ(SessionRows::sanitizeCwd("a/b"), "-a-b");
    EXPECT_EQ(SessionRows::sanitizeCwd("//a"), "--a");
}

TEST(SessionRows, AttachedRowsNeedIdAndCwd) {
    const auto rows = SessionRows::from(*json::parse(
        R"({"sessions":[{"id":"a","cwd":"/x"},{"id":"b"},{"cwd":"/y"},7,
            {"id":"c","cwd":"","source":"pi","branch":"main"},{"id":3,"cwd":"/z"}]})"));
    ASSERT_EQ(rows.attached.size(), 2U);
    EXPECT_EQ(rows.attached[0], (AttachedSession{"a", "/x", "claude-code", "", ""}));
    EXPECT_EQ(rows.attached[1], (AttachedSession{"c", "", "pi", "main", ""}));
    EXPECT_EQ(rows.attachedIds(), (std::set<std::string>{"a", "c"}));
}

TEST(SessionRows, DiscoveredRowsTakeEitherIdAndDefaults) {
    const auto rows = SessionRows::from(*json::parse(
        R"({"discoveredSessions":[{"sessionId":"a","id":"z","mtimeMs":12},{"id":"b","active":true,
            "mtimeMs":1.5,"source":"codex","title":"T"},{"cwd":"/x"},{"id":"c","mtimeMs":"9","active":1}]})"));
    ASSERT_EQ(rows.discovered.size(), 3U);
    EXPECT_EQ(rows.discovered[0].id, "a");
    EXPECT_EQ(rows.discovered[0].mtimeMs, 12);
    EXPECT_EQ(rows.discovered[0].source, "claude-code");
    EXPECT_EQ(rows.discovered[1].mtimeMs, 1.5);
    EXPECT_TRUE(rows.discovered[1].active);
    EXPECT_EQ(rows.discovered[1].title, "T");
    EXPECT_EQ(rows.discovered[2].mtimeMs, 0);
    EXPECT_FALSE(rows.discovered[2].active);
}

TEST(SessionRows, ListsOfAnotherTypeAreEmpty) {
    for (const auto* text : {"[]", "7", R"({"sessions":{},"discoveredSessions":"x"})", "{}"}) {
        const auto rows = SessionRows::from(*json::parse(text));
        EXPECT_TRUE(rows.attached.empty() && rows.discovered.empty()) << text;
    }
}

}  // namespace
}  // namespace sonra
