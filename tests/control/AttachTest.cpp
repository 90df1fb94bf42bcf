#include "control/Fixture.h"
#include "frame/HarnessTheme.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

class Attach : public test::CoordinatorTest {
  protected:
    void SetUp() override {
        transcript = makeTranscript("s1", "/p");
        start();
    }
    std::size_t tailersStarted() const { return log.count("native tailer started (forward-only)"); }

    std::string transcript;
};

TEST_F(Attach, LandsOneRowStampsItAndStartsOneTailer) {
    coordinator->attachSessionLocal({"s1", "/p", "", "", "main", "Title"});
    ASSERT_EQ(rows().size(), 1U);
    const Json expected{{"id", "s1"},
                        {"cwd", "/p"},
                        {"transcript", transcript},
                        {"source", "claude-code"},
                        {"offset", 16},
                        {"attachedAt", 1'800'000'000'000},
                        {"branch", "main"},
                        {"title", "Title"}};
    EXPECT_EQ(rows()[0], expected);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(tailersStarted(), 1U);
}

TEST_F(Attach, TwiceAddsNoSecondRowAndNoSecondTailer) {
    coordinator->attachSession("s1", "/p");
    const auto before = document();
    coordinator->attachSession("s1", "/p");
    EXPECT_EQ(document(), before);
    EXPECT_EQ(tailersStarted(), 1U);
    EXPECT_EQ(log.records("attach").back()["result"],
              (Json{{"wrote", true}, {"newAttach", false}}));
}

struct RefusedCase {
    const char* name;
    AttachRequest request;
    std::string message;
};

class RefusedAttach : public test::CoordinatorTest,
                      public testing::WithParamInterface<RefusedCase> {};

TEST_P(RefusedAttach, IsAWarningAndChangesNothing) {
    const auto& [name, request, message] = GetParam();
    makeTranscript("s1", "/p");
    start();
    log.expect(message);
    coordinator->attachSessionLocal(request);
    EXPECT_EQ(document(), Json::object());
    EXPECT_EQ(log.records(message).back()["method"], "attachSessionLocal");
    EXPECT_EQ(log.count("attach"), 0U);
}

const std::string badCwd = "attach: invalid cwd, expected absolute path without '..'";
const std::string noTranscript = "attach: no transcript and no cwd to derive one";

INSTANTIATE_TEST_SUITE_P(
    Attach, RefusedAttach,
    testing::Values(
        RefusedCase{"EmptyId", {"", "/p"}, "attach: empty session id"},
        RefusedCase{"RelativeCwd", {"s1", "relative/path"}, badCwd},
        RefusedCase{"CwdWithDots", {"s1", "/a/../b"}, badCwd},
        RefusedCase{"UnknownSource", {"s1", "/p", "", "garbage"}, "attach: unknown source"},
        RefusedCase{"NothingToDeriveFrom", {"s1", ""}, noTranscript},
        RefusedCase{"OtherSourceWithoutTranscript", {"s1", "/p", "", "codex"}, noTranscript},
        RefusedCase{"MissingTranscript",
                    {"s1", "/p", "/nowhere/x.jsonl"},
                    "attach: transcript missing on disk"}),
    [](const auto& which) { return which.param.name; });

TEST_F(Attach, ShortFormIsOfClaudeCodeAndHonoursTheGuards) {
    log.expect("attach: invalid cwd, expected absolute path without '..'");
    coordinator->attachSession("s1", "p");
    EXPECT_EQ(rows(), Json());
    coordinator->attachSession("s1", "/p");
    EXPECT_EQ(rows()[0]["source"], "claude-code");
}

TEST_F(Attach, UnknownSourceNamesTheKnownOnesSorted) {
    log.expect("attach: unknown source");
    coordinator->attachSessionLocal({"s1-long-name", "/p", "", "garbage"});
    EXPECT_EQ(
        log.records("attach: unknown source")[0]["input"],
        (Json{{"id", "s1-long-"},
              {"source", "garbage"},
              {"known", {"aider", "claude-code", "cline", "codex", "gemini", "opencode", "pi"}}}));
}

TEST_F(Attach, SessionOfEveryKnownAgentIsNarrated) {
    for (const auto& theme : HarnessTheme::all()) {
        coordinator->attachSessionLocal(
            {std::string(theme.id), "/p", transcript, std::string(theme.id)});
        EXPECT_TRUE(coordinator->sessions().isNarrating(std::string(theme.id))) << theme.id;
    }
    EXPECT_EQ(rows().size(), HarnessTheme::all().size());
}

/// A session of OpenCode's store is named by the store and its id there.
TEST_F(Attach, SessionInAStoreIsThereIfTheStoreIs) {
    const auto store = home / "opencode.db";
    log.expect("attach: transcript missing on disk");
    EXPECT_EQ(coordinator->attachSessionLocal({"o1", "/p", store + "#ses_1", "opencode"}),
              AttachOutcome::refused);
    test::writeFile(store, "");
    EXPECT_EQ(coordinator->attachSessionLocal({"o1", "/p", store + "#ses_1", "opencode"}),
              AttachOutcome::added);
    EXPECT_EQ(rows()[0]["transcript"], store + "#ses_1");
}

/// The row begins with the transcript's size and goes on with its reader's own count.
TEST_F(Attach, CursorOfADocumentReachesTheRow) {
    const auto path = home / "history.json";
    test::writeFile(path, R"([{"role":"user","content":"one"},{"role":"user","content":"two"}])");
    coordinator->attachSessionLocal({"c1", "/p", path, "cline"});
    EXPECT_TRUE(loop.runUntil([this] {
        loop.advance(SessionTailer::defaultPollInterval);
        return rows()[0]["offset"] == 2;
    }));
}

TEST_F(Attach, ClearsAStalePause) {
    writeDocument({{"paused", true}});
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->queue().paused());
    coordinator->attachSession("s1", "/p");
    EXPECT_FALSE(coordinator->queue().paused());
    EXPECT_EQ(document()["paused"], false);
}

TEST_F(Attach, KeepsWhatOthersWroteIntoTheDocument) {
    writeDocument(
        {{"theirs", {1, 2}}, {"sessions", {{{"id", "other"}, {"cwd", "/o"}, {"extra", true}}}}});
    coordinator->attachSession("s1", "/p");
    EXPECT_EQ(document()["theirs"], (Json{1, 2}));
    ASSERT_EQ(rows().size(), 2U);
    EXPECT_EQ(rows()[0]["extra"], true);
}

TEST_F(Attach, SpeaksOfTheTranscriptOnlyTheLastMessage) {
    test::appendFile(transcript, test::assistantLine("m0", "This was said long before"));
    test::appendFile(transcript, test::assistantLine("m1", "This was said before the attach"));
    coordinator->attachSession("s1", "/p");
    // The last message is looked for on another thread, and is whatever stands last by then.
    ASSERT_TRUE(waitForPlays(1));
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m1");
    reply(transcript, "m2", "This is spoken because it came later");
    ASSERT_TRUE(loop.runUntil([&] { return log.count("chunk enqueued") == 2; }));
    coordinator->handleIPC({{"cmd", "skip"}});
    loop.runPosted();
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m2");
    EXPECT_EQ(coordinator->queue().currentChunk()->text, "This is spoken because it came later");
}

TEST_F(Attach, WhatIsSaidDuringTheAttachIsSpoken) {
    // The panel comes up in the middle of an attach, before the tailer starts.
    panel->onOrderFront = [this] {
        test::appendFile(transcript, test::assistantLine("m1", "This was said in the meantime"));
        test::appendFile(transcript, test::assistantLine("m2", "And this one right behind it"));
    };
    coordinator->attachSession("s1", "/p");
    panel->onOrderFront = nullptr;
    files.fire(transcript, {.written = true});
    ASSERT_TRUE(loop.runUntil([&] { return log.count("chunk enqueued") == 2; }));
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m1");
}

TEST_F(Attach, ARowThatCannotBeWrittenEndsNoNarration) {
    log.expect("attach: the row couldn't be written; narrating until the service ends");
    // A directory in its place can be neither read nor replaced.
    std::filesystem::remove(ServiceState::path());
    std::filesystem::create_directories(ServiceState::path() + "/in the way");
    coordinator->attachSession("s1", "/p");
    loop.advance(stateTick);
    std::filesystem::remove_all(ServiceState::path());
    writeDocument(Json::object());
    loop.advance(stateTick * 2);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_FALSE(coordinator->sessions().userDetachedThisRun());
    reply(transcript, "m1", "This is heard all the same");
    EXPECT_TRUE(waitForPlays(1));
}

TEST_F(Attach, FollowsARowThatMovesToAnotherTranscript) {
    coordinator->attachSession("s1", "/p");
    const auto moved = makeTranscript("moved", "/p");
    auto changed = document();
    changed["sessions"][0]["transcript"] = moved;
    writeDocument(changed);
    loop.advance(stateTick);
    EXPECT_EQ(files.armed(), std::vector<std::string>{moved});
    reply(moved, "m1", "A reply in the file that it moved to");
    EXPECT_TRUE(waitForPlays(1));
}

TEST_F(Attach, CursorIsWrittenToTheRowWhenItChanges) {
    coordinator->attachSession("s1", "/p");
    test::appendFile(transcript, "{\"type\":\"user\",\"n\":1}\n");
    files.fire(transcript, {.written = true});
    EXPECT_TRUE(loop.runUntil([&] { return rows()[0]["offset"] == 38; }));
    std::filesystem::remove(ServiceState::path());
    loop.advance(std::chrono::seconds(1));
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path()))
        << "an unchanged cursor was written";
}

TEST_F(Attach, DetachStopsAndDropsTheTailer) {
    coordinator->attachSession("s1", "/p");
    coordinator->detachSessionLocal("s1");
    EXPECT_EQ(rows(), Json::array());
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    EXPECT_TRUE(files.armed().empty());
    EXPECT_TRUE(coordinator->sessions().userDetachedThisRun());
}

TEST_F(Attach, DetachOfAnUnknownOrEmptyIdChangesNoRow) {
    coordinator->attachSession("s1", "/p");
    const auto before = rows();
    coordinator->detachSessionLocal("nobody");
    coordinator->detachSessionLocal("");
    EXPECT_EQ(rows(), before);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(log.count("detach"), 1U);
}

TEST_F(Attach, DetachOfAnUnknownIdLeavesTheDocumentAsItIs) {
    for (const auto& content :
         {Json::object(), Json{{"sessions", 7}}, Json{{"sessions", {{{"id", "x"}}}}}}) {
        writeDocument(content);
        coordinator->detachSessionLocal("nobody");
        EXPECT_EQ(document(), content);
    }
}

TEST_F(Attach, LogTellsWhatWasAttachedAndFromWhere) {
    makeTranscript("s2-with-a-long-id", "/p");
    coordinator->attachSession("s2-with-a-long-id", "/p");
    EXPECT_EQ(log.records("attach").at(0)["input"],
              (Json{{"sessionId", "s2-with-"}, {"source", "claude-code"}, {"offset", 16}}));
    EXPECT_EQ(log.records("attach").at(0)["result"], (Json{{"wrote", true}, {"newAttach", true}}));
    EXPECT_EQ(
        log.records("native tailer started (forward-only)").at(0)["input"],
        (Json{
            {"sessionId", "s2-with-a-long-id"}, {"source", "claude-code"}, {"attachBytePos", 16}}));
    coordinator->detachSessionLocal("s2-with-a-long-id");
    EXPECT_EQ(log.records("detach").at(0)["input"], (Json{{"sessionId", "s2-with-a-long-id"}}));
}

TEST_F(Attach, CommandCarriesEveryField) {
    coordinator->handleIPC({{"cmd", "attach"},
                            {"id", "c1"},
                            {"cwd", "/c"},
                            {"transcript", transcript},
                            {"source", "codex"},
                            {"branch", "b"},
                            {"title", "t"}});
    ASSERT_EQ(rows().size(), 1U);
    for (const auto& [key, value] : {std::pair{"id", "c1"},
                                     {"cwd", "/c"},
                                     {"source", "codex"},
                                     {"branch", "b"},
                                     {"title", "t"}})
        EXPECT_EQ(rows()[0][key], value);
    EXPECT_EQ(rows()[0]["transcript"], transcript);
}

TEST_F(Attach, WithoutTheLockNothingIsWrittenAndNothingStarts) {
    log.expect("state-lock timeout; skipping write");
    ASSERT_TRUE(StateLock::tryAcquire(ServiceState::path()));
    coordinator->attachSession("s1", "/p");
    StateLock::release(ServiceState::path());
    EXPECT_EQ(log.records("attach").at(0)["result"],
              (Json{{"wrote", false}, {"newAttach", false}}));
    EXPECT_EQ(document(), Json::object());
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
}

TEST_F(Attach, UnreadableDocumentEndsNoNarration) {
    coordinator->attachSession("s1", "/p");
    loop.advance(stateTick);
    const auto whole = document();
    test::writeFile(ServiceState::path(), "{ half a docum");
    loop.advance(stateTick);
    std::filesystem::remove(ServiceState::path());
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_FALSE(coordinator->sessions().userDetachedThisRun());
    writeDocument(whole);
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
}

struct UnresumableCase {
    const char* name;
    Json row;
    std::string id;
    std::string message;
};

class UnresumableRow : public test::CoordinatorTest,
                       public testing::WithParamInterface<UnresumableCase> {};

TEST_P(UnresumableRow, StaysWithoutATailer) {
    const auto& [name, row, id, message] = GetParam();
    start();
    writeDocument({{"sessions", {row, 7, "x", nullptr}}});
    log.expect(message);
    coordinator->handleIPC({{"cmd", "attach"}, {"id", id}, {"resume", true}});
    EXPECT_FALSE(coordinator->sessions().isNarrating());
    EXPECT_EQ(rows().size(), 4U);
}

INSTANTIATE_TEST_SUITE_P(
    Attach, UnresumableRow,
    testing::Values(UnresumableCase{"EmptyId",
                                    {{"id", ""}, {"cwd", ""}, {"transcript", "/t"}},
                                    "",
                                    "attach: empty session id"},
                    UnresumableCase{"TranscriptGone",
                                    {{"id", "a"}, {"cwd", "/p"}, {"transcript", "/nowhere/t"}},
                                    "a",
                                    "attach: transcript missing on disk"},
                    UnresumableCase{"NoTranscriptToFind",
                                    {{"id", "a"}, {"cwd", ""}},
                                    "a",
                                    "attach: no transcript and no cwd to derive one"}),
    [](const auto& which) { return which.param.name; });

TEST_F(Attach, ResumeStartsATailerForARowThatHasNone) {
    writeDocument({{"sessions", {{{"id", "s1"}, {"cwd", "/p"}, {"transcript", transcript}}}}});
    loop.advance(stateTick);
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    const auto before = rows();
    coordinator->handleIPC({{"cmd", "attach"}, {"id", "s1"}, {"resume", true}});
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(rows(), before);
    coordinator->handleIPC({{"cmd", "attach"}, {"id", "s1"}, {"resume", true}});
    EXPECT_EQ(tailersStarted(), 1U);
}

TEST_F(Attach, ResumeOfASessionThatWasDetachedMeanwhileDoesNotBringItBack) {
    coordinator->handleIPC({{"cmd", "attach"}, {"id", "s1"}, {"cwd", "/p"}, {"resume", true}});
    EXPECT_TRUE(rows().empty());
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
}

class AutoAttach : public test::CoordinatorTest {
  protected:
    void SetUp() override {
        transcript = makeTranscript("s1", "/p");
        start();
    }
    std::string transcript;
};

TEST_F(AutoAttach, TakesTheSoleFreshSessionAtTheNextTick) {
    writeDocument({{"discoveredSessions", {discovered("s1", transcript)}}});
    loop.advance(stateTick);
    ASSERT_EQ(rows().size(), 1U);
    EXPECT_EQ(rows()[0]["id"], "s1");
    EXPECT_EQ(log.count("auto-attach sole session"), 1U);
    loop.advance(stateTick * 3);
    EXPECT_EQ(log.count("auto-attach sole session"), 1U);
}

TEST_F(AutoAttach, CandidateWithoutATranscriptIsTakenOnceThatIsThere) {
    log.expect("attach: transcript missing on disk");
    auto row = discovered("s9", home / "late.jsonl");
    writeDocument({{"discoveredSessions", {row}}});
    loop.advance(stateTick * 5);
    EXPECT_EQ(log.count("attach: transcript missing on disk"), 1U);
    test::writeFile(home / "late.jsonl", "");
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s9"));
}

TEST_F(AutoAttach, CandidateThatHasARowWithoutADirectoryIsTriedOnce) {
    writeDocument(
        {{"sessions", {{{"id", "s1"}}}}, {"discoveredSessions", {discovered("s1", transcript)}}});
    loop.advance(stateTick * 5);
    EXPECT_EQ(log.count("auto-attach sole session"), 1U);
}

TEST_F(AutoAttach, ALockThatWasHeldTooLongIsNoRefusal) {
    log.expect("state-lock timeout; skipping write");
    writeDocument({{"discoveredSessions", {discovered("s1", transcript)}}});
    ASSERT_TRUE(StateLock::tryAcquire(ServiceState::path()));
    loop.advance(stateTick);
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    StateLock::release(ServiceState::path());
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
}

TEST_F(AutoAttach, StandsDownAfterADetachThoughTheCandidateWouldStillQualify) {
    writeDocument({{"discoveredSessions", {discovered("s1", transcript)}}});
    loop.advance(stateTick);
    coordinator->detachSessionLocal("s1");
    loop.advance(stateTick * 3);
    EXPECT_EQ(rows(), Json::array());
}

TEST_F(AutoAttach, StandsDownAfterADetachFromOutside) {
    writeDocument({{"discoveredSessions", {discovered("s1", transcript)}}});
    loop.advance(stateTick);
    auto changed = document();
    changed["sessions"] = Json::array();
    writeDocument(changed);
    loop.advance(stateTick * 3);
    EXPECT_EQ(rows(), Json::array());
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(log.count("state-level detach observed; auto-attach stands down for this run"), 1U);
}

TEST_F(AutoAttach, OneOfTwoThatVanishesCountsAndTheOtherGoesOn) {
    const auto second = makeTranscript("s2", "/p");
    coordinator->attachSession("s1", "/p");
    coordinator->attachSession("s2", "/p");
    loop.advance(stateTick);
    auto changed = document();
    changed["sessions"].erase(0);
    writeDocument(changed);
    loop.advance(stateTick);
    EXPECT_TRUE(coordinator->sessions().userDetachedThisRun());
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    EXPECT_TRUE(coordinator->sessions().isNarrating("s2"));
}

TEST_F(AutoAttach, AnAddedRowAloneLatchesNothing) {
    writeDocument({{"sessions", {{{"id", "x"}, {"cwd", "/p"}}}}});
    loop.advance(stateTick);
    writeDocument({{"sessions", {{{"id", "x"}, {"cwd", "/p"}}, {{"id", "y"}, {"cwd", "/p"}}}}});
    loop.advance(stateTick);
    EXPECT_FALSE(coordinator->sessions().userDetachedThisRun());
}

}  // namespace
}  // namespace sonra
