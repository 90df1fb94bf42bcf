#include "search/Searcher.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace sonra {
namespace {

constexpr double searchTime = 1'760'000'000;
constexpr double old = searchTime - 700'000;

SessionMeta session(const std::string& id, const std::string& cwd, const std::string& prompt = "",
                    const std::string& snippet = "", double mtime = old) {
    SessionMeta meta;
    meta.sessionId = id;
    meta.cwd = cwd;
    meta.firstUserPrompt = prompt;
    meta.lastAssistantSnippet = snippet;
    meta.mtime = mtime;
    return meta;
}

SessionSnapshot two() {
    return SessionSnapshot({session("1111", "/Users/x/src/tts", "kokoro warmup", "search done"),
                            session("2222", "/Users/x/src/offload", "release it", "published")});
}

std::vector<SearchHit> find(const SessionSnapshot& snapshot, std::string_view query,
                            const std::set<std::string>& attached = {}) {
    return Searcher::search(snapshot, query, attached, searchTime);
}

std::vector<SessionHit> sessionsOf(const std::vector<SearchHit>& hits) {
    std::vector<SessionHit> sessions;
    for (const auto& hit : hits)
        if (const auto* found = std::get_if<SessionHit>(&hit)) sessions.push_back(*found);
    return sessions;
}

std::vector<ProjectHit> projectsOf(const std::vector<SearchHit>& hits) {
    std::vector<ProjectHit> projects;
    for (const auto& hit : hits)
        if (const auto* found = std::get_if<ProjectHit>(&hit)) projects.push_back(*found);
    return projects;
}

std::vector<std::string> idsOf(const std::vector<SearchHit>& hits) {
    std::vector<std::string> ids;
    for (const auto& hit : sessionsOf(hits)) ids.push_back(hit.session->sessionId);
    return ids;
}

using Ids = std::vector<std::string>;

TEST(Searcher, AnEmptyQueryGivesAllOfTwoSessions) {
    const auto hits = find(two(), "  ");
    EXPECT_EQ(idsOf(hits), (Ids{"1111", "2222"}));
    EXPECT_TRUE(projectsOf(hits).empty());
    for (const auto& hit : sessionsOf(hits)) {
        EXPECT_EQ(hit.field, HitField::project);
        EXPECT_TRUE(hit.matchedIndices.empty());
        EXPECT_EQ(hit.score, 0);
    }
}

TEST(Searcher, AnEmptyQueryGivesAttachedSessionsFirstAndEightInAll) {
    std::vector<SessionMeta> many;
    std::set<std::string> attached{"11", "3"};
    for (int i = 0; i < 12; ++i) many.push_back(session(std::to_string(i), "/p"));
    EXPECT_EQ(idsOf(find(SessionSnapshot(many), "", attached)),
              (Ids{"3", "11", "0", "1", "2", "4", "5", "6"}));
    for (int i = 0; i < 12; ++i) attached.insert(std::to_string(i));
    EXPECT_EQ(find(SessionSnapshot(many), "", attached).size(), 8U);
}

TEST(Searcher, TheFolderThatIsNamedIsOnTop) {
    const auto hits = find(two(), "tts");
    EXPECT_EQ(idsOf(hits).front(), "1111");
    EXPECT_EQ(sessionsOf(hits)[0].field, HitField::project);
    EXPECT_EQ(sessionsOf(hits)[0].matchedIndices, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(sessionsOf(hits)[0].score, 29 * Searcher::fieldWeightProject);
}

TEST(Searcher, WhatNoFieldHoldsGivesNothing) {
    EXPECT_TRUE(find(two(), "ttso").empty());
}

TEST(Searcher, ASessionIsFoundByItsFirstPrompt) {
    const auto hits = find(two(), "release");
    EXPECT_EQ(idsOf(hits), (Ids{"2222"}));
    EXPECT_EQ(sessionsOf(hits)[0].field, HitField::firstUserPrompt);
}

TEST(Searcher, AProjectFilterAloneGivesOneSessionRow) {
    const auto hits = find(two(), "project:offload");
    ASSERT_EQ(hits.size(), 1U);
    EXPECT_EQ(idsOf(hits), (Ids{"2222"}));
    EXPECT_EQ(sessionsOf(hits)[0].score, 0);
    EXPECT_EQ(sessionsOf(hits)[0].field, HitField::project);
}

TEST(Searcher, FiltersAreSubstringsAndAllMustHold) {
    EXPECT_EQ(idsOf(find(two(), "cwd:/X/SRC")), (Ids{"1111", "2222"}));
    EXPECT_EQ(idsOf(find(two(), "session:22")), (Ids{"2222"}));
    EXPECT_TRUE(find(two(), "project:ofld").empty());
    EXPECT_TRUE(find(two(), "project:tts session:22").empty());
}

TEST(Searcher, EveryTokenMustBeFound) {
    EXPECT_EQ(idsOf(find(two(), "tts search")), (Ids{"1111"}));
    EXPECT_TRUE(find(two(), "tts published").empty());
}

TEST(Searcher, BeingAttachedIsWorthTwo) {
    const int plain = sessionsOf(find(two(), "tts"))[0].score;
    EXPECT_EQ(sessionsOf(find(two(), "tts", {"1111"}))[0].score, plain + 2);
}

TEST(Searcher, RecentSessionsAreWorthMore) {
    const auto scoreAt = [](double mtime) {
        return sessionsOf(
                   find(SessionSnapshot({session("x", "/tts", "", "", mtime)}), "project:tts"))[0]
            .score;
    };
    EXPECT_EQ(scoreAt(searchTime + 1000), 3);
    EXPECT_EQ(scoreAt(searchTime - 86399), 3);
    EXPECT_EQ(scoreAt(searchTime - 86400), 1);
    EXPECT_EQ(scoreAt(searchTime - 604799), 1);
    EXPECT_EQ(scoreAt(searchTime - 604800), 0);
}

TEST(Searcher, TheClockIsTheSystemsByDefault) {
    const SessionSnapshot snapshot(
        {session("x", "/tts", "", "", static_cast<double>(std::time(nullptr)))});
    EXPECT_EQ(sessionsOf(Searcher::search(snapshot, "project:tts", {}))[0].score, 3);
}

TEST(Searcher, AFolderWhoseNameHoldsTheTokenIsAProjectRow) {
    const auto hits = find(two(), "tts");
    const auto projects = projectsOf(hits);
    ASSERT_EQ(projects.size(), 1U);
    EXPECT_EQ(projects[0].name, "tts");
    ASSERT_EQ(projects[0].sessions.size(), 1U);
    EXPECT_EQ(projects[0].sessions[0]->sessionId, "1111");
    EXPECT_TRUE(std::holds_alternative<ProjectHit>(hits[0]));
}

TEST(Searcher, LettersInOrderAreNoProjectRow) {
    EXPECT_FALSE(find(two(), "ofld").empty());
    EXPECT_TRUE(projectsOf(find(two(), "ofld")).empty());
}

TEST(Searcher, OneTokenIsEnoughForAProjectRow) {
    EXPECT_EQ(projectsOf(find(two(), "search tts")).size(), 1U);
}

TEST(Searcher, FoldersKeepTheirSpellingAndDifferByIt) {
    const SessionSnapshot snapshot(
        {session("a", "/x/TTS"), session("b", "/y/TTS/"), session("c", "/z/tts")});
    const auto projects = projectsOf(find(snapshot, "tts"));
    ASSERT_EQ(projects.size(), 2U);
    EXPECT_EQ(projects[0].name, "TTS");
    EXPECT_EQ(projects[0].sessions.size(), 2U);
    EXPECT_EQ(projects[1].name, "tts");
}

TEST(Searcher, AProjectRowSumsSessionsThatAreCutOff) {
    std::vector<SessionMeta> many;
    for (int i = 0; i < 20; ++i) many.push_back(session(std::to_string(i), "/tts"));
    const auto hits = find(SessionSnapshot(many), "tts");
    EXPECT_EQ(sessionsOf(hits).size(), Searcher::maxSessions);
    EXPECT_EQ(projectsOf(hits)[0].sessions.size(), 20U);
    EXPECT_EQ(projectsOf(hits)[0].score, 20 * 29 * 8);
}

TEST(Searcher, AtMostFiveProjects) {
    std::vector<SessionMeta> many;
    for (int i = 0; i < 9; ++i)
        many.push_back(session(std::to_string(i), "/tts" + std::to_string(i)));
    EXPECT_EQ(projectsOf(find(SessionSnapshot(many), "tts")).size(), Searcher::maxProjects);
}

TEST(Searcher, EqualScoresAreSortedByTimeAndThenStayInOrder) {
    const SessionSnapshot snapshot(
        {session("a", "/tts", "", "", old - 2), session("b", "/tts", "", "", old),
         session("c", "/tts", "", "", old - 2), session("d", "/tts", "", "", old - 1)});
    EXPECT_EQ(idsOf(find(snapshot, "tts")), (Ids{"b", "d", "a", "c"}));
}

TEST(Searcher, TheFieldIsTheWeightiestTokens) {
    const auto hits = sessionsOf(find(two(), "kokoro tts search"));
    ASSERT_EQ(hits.size(), 1U);
    EXPECT_EQ(hits[0].field, HitField::project);
    EXPECT_EQ(hits[0].matchedIndices, (std::vector<int>{0, 1, 2}));
}

TEST(Searcher, WithoutADirectoryThereIsNoProject) {
    const SessionSnapshot snapshot({session("a", "", "tts")});
    EXPECT_TRUE(projectsOf(find(snapshot, "tts")).empty());
    EXPECT_EQ(idsOf(find(snapshot, "tts")), (Ids{"a"}));
    EXPECT_TRUE(find(snapshot, "project:t").empty());
}

TEST(Searcher, SubAgentsAreNeitherFoundNorRecent) {
    std::vector<SessionMeta> all;
    for (int i = 0; i < 9; ++i) {
        all.push_back(session("agent-" + std::to_string(i), "/tts", "tts"));
        all.back().jsonlPath = "/root/-tts/agent-" + std::to_string(i) + ".jsonl";
    }
    all.push_back(session("own", "/tts", "tts", "", old - 1));
    all.back().jsonlPath = "/root/agent-folder/own.jsonl";
    const SessionSnapshot snapshot(all);
    EXPECT_EQ(idsOf(find(snapshot, "")), (Ids{"own"}));
    EXPECT_EQ(idsOf(find(snapshot, "", {"agent-1"})), (Ids{"own"}));
    const auto hits = find(snapshot, "tts");
    EXPECT_EQ(idsOf(hits), (Ids{"own"}));
    EXPECT_EQ(projectsOf(hits)[0].sessions.size(), 1U);
    EXPECT_TRUE(find(snapshot, "session:agent").empty());
}

TEST(Searcher, AnEmptySnapshotGivesNothing) {
    EXPECT_TRUE(find(SessionSnapshot(), "tts").empty());
    EXPECT_TRUE(find(SessionSnapshot(), "").empty());
}

TEST(Searcher, HitsOutliveTheSnapshot) {
    const auto hits = [] { return find(two(), "tts"); }();
    EXPECT_EQ(projectsOf(hits)[0].sessions[0]->cwd, "/Users/x/src/tts");
}

}  // namespace
}  // namespace sonra
