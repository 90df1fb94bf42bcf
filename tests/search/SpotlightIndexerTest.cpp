#include "search/SpotlightIndexer.h"

#include <gtest/gtest.h>

#include <atomic>

#include "RecordedDesktopSearch.h"
#include "frame/Semaphore.h"
#include "support/FakeDefaults.h"
#include "support/ManualLoop.h"

namespace sonra::test {
namespace {

using Address = SpotlightIndexer::Address;
using Calls = std::vector<std::string>;

SessionMeta metaOf(const std::string& id, double mtime = 100) {
    SessionMeta session;
    session.sessionId = id;
    session.cwd = "/src/tts";
    session.lastAssistantSnippet = "All tests pass.";
    session.mtime = mtime;
    return session;
}

SessionMeta fileOf(const std::string& id, const std::string& path, double mtime) {
    auto session = metaOf(id, mtime);
    session.jsonlPath = path;
    session.cwd = path.substr(0, path.rfind('/'));
    return session;
}

SessionSnapshot snapshot(std::vector<SessionMeta> sessions) {
    return SessionSnapshot(std::move(sessions));
}

class SpotlightIndexerTest : public testing::Test {
  protected:
    SpotlightIndexerTest() {
        indexer->setCallbacks({
            .lookup = [](const auto& id) -> std::optional<SessionMeta> {
                if (id == "known") return metaOf(id);
                return std::nullopt;
            },
            .onAttach = [this](const auto& id,
                               const auto& cwd) { attaches.push_back(id + " " + cwd); },
        });
    }
    /// Lets the desktop take in the sessions.
    void reindex(std::vector<SessionMeta> sessions) {
        const auto before = index.calls().size();
        indexer->reindexAll(snapshot(std::move(sessions)));
        EXPECT_TRUE(loop.runUntil([&] { return index.calls().size() > before; }));
        loop.runPosted();
    }
    /// The calls since the last time, once the newest is `last`.
    Calls callsUpTo(const std::string& last) {
        const auto isLast = [&] {
            const auto calls = index.calls();
            return calls.size() > seen && calls.back() == last;
        };
        EXPECT_TRUE(loop.runUntil(isLast)) << "never came: " << last;
        const auto calls = index.calls();
        Calls fresh(calls.begin() + static_cast<std::ptrdiff_t>(seen), calls.end());
        seen = calls.size();
        return fresh;
    }

    ManualLoop loop;
    RecordedDesktopSearch index{loop};
    FakeDefaults defaults;
    Calls attaches;
    std::size_t seen = 0;
    std::optional<SpotlightIndexer> indexer{std::in_place, loop, index, defaults};
};

TEST_F(SpotlightIndexerTest, HandsOverEverySessionAsAnItem) {
    reindex({metaOf("0123456789-a", 12.5), metaOf("b")});
    ASSERT_EQ(index.items.size(), 2U);
    const SearchableItem expected{
        .uniqueIdentifier = "tts://session/0123456789-a",
        .domainIdentifier = "sessions",
        .contentType = "text/plain",
        .title = "tts · 01234567",
        .contentDescription = "All tests pass.",
        .keywords = {"tts", "/src/tts", "0123456789-a", "01234567"},
        .contentModificationDate = 12.5,
    };
    EXPECT_EQ(index.items.at("tts://session/0123456789-a"), expected);
}

TEST_F(SpotlightIndexerTest, ASessionIsHandedOverAgainOnlyIfItsFileChanged) {
    reindex({metaOf("a"), metaOf("b")});
    callsUpTo("index tts://session/a tts://session/b");
    indexer->update(snapshot({metaOf("a"), metaOf("b")}));
    indexer->update(snapshot({metaOf("a"), metaOf("b", 101), metaOf("c")}));
    // The first update asked for nothing.
    EXPECT_EQ(callsUpTo("index tts://session/b tts://session/c").size(), 1U);
    indexer->update(snapshot({metaOf("a"), metaOf("b", 99), metaOf("c")}));
    EXPECT_EQ(callsUpTo("index tts://session/b").size(), 1U);
}

TEST_F(SpotlightIndexerTest, SessionsThatHaveGoneAreTakenBack) {
    reindex({metaOf("a"), metaOf("b")});
    callsUpTo("index tts://session/a tts://session/b");
    indexer->update(snapshot({metaOf("b")}));
    EXPECT_EQ(callsUpTo("delete tts://session/a"), (Calls{"delete tts://session/a"}));
    indexer->update(snapshot({metaOf("c")}));
    EXPECT_EQ(callsUpTo("delete tts://session/b"),
              (Calls{"index tts://session/c", "delete tts://session/b"}));
}

TEST_F(SpotlightIndexerTest, AnUpdateBeforeTheDesktopHasAnsweredBuildsUponTheReindex) {
    indexer->reindexAll(snapshot({metaOf("a"), metaOf("b")}));
    indexer->update(snapshot({metaOf("b", 101)}));
    EXPECT_EQ(callsUpTo("delete tts://session/a"),
              (Calls{"index tts://session/a tts://session/b", "index tts://session/b",
                     "delete tts://session/a"}));
    loop.runPosted();
    indexer->update(snapshot({metaOf("b", 101), metaOf("c")}));
    EXPECT_EQ(callsUpTo("index tts://session/c"), (Calls{"index tts://session/c"}));
}

TEST_F(SpotlightIndexerTest, WhatIsAskedForWhileTheDesktopIsSlowIsDoneInOrder) {
    Semaphore isBusy;
    Semaphore goOn;
    std::atomic<bool> isFirst = true;
    index.beforeIndexing = [&] {
        if (!isFirst.exchange(false)) return;
        isBusy.signal();
        EXPECT_TRUE(goOn.waitFor(std::chrono::seconds(20)));
    };
    indexer->update(snapshot({metaOf("x")}));
    ASSERT_TRUE(isBusy.waitFor(std::chrono::seconds(20)));
    indexer->reindexAll(snapshot({metaOf("a"), metaOf("b")}));
    EXPECT_EQ(index.calls(), Calls()) << "it has to wait";
    indexer->update(snapshot({metaOf("b"), metaOf("c")}));
    goOn.signal();
    EXPECT_EQ(callsUpTo("delete tts://session/a"),
              (Calls{"index tts://session/x", "index tts://session/a tts://session/b",
                     "delete tts://session/x", "index tts://session/c", "delete tts://session/a"}));
}

TEST_F(SpotlightIndexerTest, ReindexingTakesBackWhatHasGoneSince) {
    reindex({metaOf("a"), metaOf("b")});
    callsUpTo("index tts://session/a tts://session/b");
    indexer->reindexAll(snapshot({metaOf("b")}));
    EXPECT_EQ(callsUpTo("delete tts://session/a"),
              (Calls{"index tts://session/b", "delete tts://session/a"}));
}

TEST_F(SpotlightIndexerTest, OfTranscriptsWithOneIdTheNewestIsHandedOver) {
    reindex({fileOf("a", "/q/a.jsonl", 200), metaOf("b"), fileOf("a", "/p/a.jsonl", 100)});
    EXPECT_EQ(callsUpTo("index tts://session/a tts://session/b").size(), 1U);
    EXPECT_EQ(index.items.at("tts://session/a").contentModificationDate, 200);
    // In another order than the catalogue's, too.
    reindex({fileOf("a", "/p/a.jsonl", 100), metaOf("b"), fileOf("a", "/q/a.jsonl", 200)});
    EXPECT_EQ(callsUpTo("index tts://session/a tts://session/b").size(), 1U);
    EXPECT_EQ(index.items.at("tts://session/a").contentModificationDate, 200);
}

TEST_F(SpotlightIndexerTest, OfTranscriptsWithOneIdOnlyTheNewestIsLookedAtForChanges) {
    const auto newest = fileOf("a", "/q/a.jsonl", 200);
    reindex({newest, fileOf("a", "/p/a.jsonl", 100)});
    callsUpTo("index tts://session/a");
    indexer->update(snapshot({newest, fileOf("a", "/p/a.jsonl", 100)}));
    indexer->update(snapshot({newest, fileOf("a", "/p/a.jsonl", 150), metaOf("b")}));
    EXPECT_EQ(callsUpTo("index tts://session/b").size(), 1U);
    indexer->update(snapshot({fileOf("a", "/p/a.jsonl", 300), newest, metaOf("b")}));
    EXPECT_EQ(callsUpTo("index tts://session/a").size(), 1U);
    loop.runPosted();
    EXPECT_EQ(index.items.at("tts://session/a").contentModificationDate, 300);
}

TEST_F(SpotlightIndexerTest, WhenTheNewestOfAnIdGoesTheItemIsTheOthers) {
    reindex({fileOf("a", "/q/a.jsonl", 200), fileOf("a", "/p/a.jsonl", 200)});
    callsUpTo("index tts://session/a");
    EXPECT_EQ(index.items.at("tts://session/a").keywords[1], "/q");
    indexer->update(snapshot({fileOf("a", "/p/a.jsonl", 200)}));
    EXPECT_EQ(callsUpTo("index tts://session/a"), (Calls{"index tts://session/a"}));
    EXPECT_EQ(index.items.at("tts://session/a").keywords[1], "/p");
}

TEST_F(SpotlightIndexerTest, SubAgentsAreNotHandedOver) {
    reindex({fileOf("agent-1", "/p/agent-1.jsonl", 200), metaOf("b")});
    EXPECT_EQ(callsUpTo("index tts://session/b").size(), 1U);
    indexer->update(snapshot({fileOf("agent-1", "/p/agent-1.jsonl", 300), metaOf("c")}));
    EXPECT_EQ(callsUpTo("delete tts://session/b"),
              (Calls{"index tts://session/c", "delete tts://session/b"}));
}

TEST_F(SpotlightIndexerTest, AResetForgetsWhatWasHandedOver) {
    reindex({metaOf("a"), metaOf("b")});
    callsUpTo("index tts://session/a tts://session/b");
    indexer->resetAndReindex(snapshot({metaOf("b")}));
    EXPECT_EQ(callsUpTo("index tts://session/b"), (Calls{"delete all", "index tts://session/b"}));
    loop.runPosted();
    EXPECT_EQ(index.items.size(), 1U);
    indexer->update(snapshot({metaOf("b"), metaOf("c")}));
    EXPECT_EQ(callsUpTo("index tts://session/c").size(), 1U);
}

TEST_F(SpotlightIndexerTest, AnErrorOfReindexingIsSaid) {
    index.error = "no bus";
    testing::internal::CaptureStderr();
    reindex({metaOf("a")});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[spotlight] reindex error: no bus\n");
}

TEST_F(SpotlightIndexerTest, WhatAnEarlierDesignLeftIsPurged) {
    defaults.set("tts.search.indexMessages", true);
    defaults.set("tts.other", true);
    SearchableItem legacy;
    legacy.domainIdentifier = "messages";
    index.items["tts://session/a/message/m"] = legacy;
    reindex({metaOf("a")});
    indexer->purgeLegacyMessageIndex();
    callsUpTo("delete domain messages");
    loop.runPosted();
    EXPECT_EQ(index.items.size(), 1U);
    EXPECT_TRUE(index.items.contains("tts://session/a"));
    EXPECT_FALSE(defaults.boolean("tts.search.indexMessages"));
    EXPECT_TRUE(defaults.boolean("tts.other"));
}

TEST_F(SpotlightIndexerTest, NothingHappensOnceItHasGone) {
    indexer->reindexAll(snapshot({metaOf("a")}));
    indexer->resetAndReindex(snapshot({metaOf("a")}));
    EXPECT_TRUE(indexer->openFromURLString("tts://session/known"));
    indexer.reset();
    loop.runPosted();
    EXPECT_TRUE(attaches.empty());
}

TEST(SpotlightAddress, NamesASessionAndMaybeAMessage) {
    struct Case {
        std::string text;
        std::optional<Address> address;
    };
    const Case cases[] = {
        {"tts://session/abc", Address{"abc", std::nullopt}},
        {"tts://session/abc/message/m1", Address{"abc", "m1"}},
        {"TTS://session/abc", Address{"abc", std::nullopt}},
        {"tts://session/abc/", Address{"abc", std::nullopt}},
        {"tts://session//abc", Address{"abc", std::nullopt}},
        {"tts://session/abc/message", Address{"abc", std::nullopt}},
        {"tts://session/abc/other/m1", Address{"abc", std::nullopt}},
        {"tts://session/abc/message/m1/more", Address{"abc", "m1"}},
        {"tts://session/abc?from=panel#top", Address{"abc", std::nullopt}},
        {"tts://session/a%20b%zz%4", Address{"a b%zz%4", std::nullopt}},
        {"tts://me@session:80/abc", Address{"abc", std::nullopt}},
        {"tts://other/abc", std::nullopt},
        {"https://session/abc", std::nullopt},
        {"tts://session", std::nullopt},
        {"tts://session/", std::nullopt},
        {"tts://session?abc", std::nullopt},
        {"tts://sessions/abc", std::nullopt},
        {"tts:session/abc", std::nullopt},
        {"session/abc", std::nullopt},
        {"tts://", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, address] : cases)
        EXPECT_EQ(SpotlightIndexer::parseURL(text), address) << text;
}

TEST_F(SpotlightIndexerTest, AnAddressAttachesItsSession) {
    EXPECT_TRUE(indexer->openFromURLString("tts://session/known/message/m1"));
    EXPECT_TRUE(attaches.empty()) << "on the main queue, not at once";
    loop.runPosted();
    EXPECT_TRUE(indexer->openFromURLString("tts://session/unknown"));
    loop.runPosted();
    EXPECT_EQ(attaches, (Calls{"known /src/tts", "unknown "}));
}

TEST_F(SpotlightIndexerTest, ABadAddressIsRefused) {
    EXPECT_FALSE(indexer->openFromURLString("tts://other/abc"));
    loop.runPosted();
    EXPECT_TRUE(attaches.empty());
}

TEST_F(SpotlightIndexerTest, AChosenResultAttachesItsSession) {
    const std::string type(SpotlightIndexer::CSSearchableItemActionType);
    const std::string key(SpotlightIndexer::CSSearchableItemActivityIdentifier);
    EXPECT_TRUE(indexer->handleActivity({type, {{key, "tts://session/known"}}}));
    EXPECT_FALSE(indexer->handleActivity({"other", {{key, "tts://session/known"}}}));
    EXPECT_FALSE(indexer->handleActivity({type, {}}));
    EXPECT_FALSE(indexer->handleActivity({type, {{key, "nonsense"}}}));
    loop.runPosted();
    EXPECT_EQ(attaches, (Calls{"known /src/tts"}));
}

}  // namespace
}  // namespace sonra::test
