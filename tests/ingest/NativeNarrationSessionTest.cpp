#include "ingest/NativeNarrationSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <semaphore>
#include <thread>

#include "ingest/ClaudeCodeReader.h"
#include "ingest/NativeNarration.h"
#include "support/FakeFileWatcher.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using test::appendFile;
using test::assistantLine;

constexpr FileEvents written{.written = true};

class NativeNarrationSessionTest : public testing::Test {
  protected:
    NativeNarrationSessionTest() { test::writeFile(path, ""); }

    NativeNarration::SessionOptions options() {
        return {.sessionId = "0123456789abcdef",
                .startOffset = std::nullopt,
                .pathProvider = [this] { return path; },
                .synth =
                    [this](const std::string& text, const std::string&, const std::string&,
                           const NarrationPump::OnChunk& onChunk) {
                        synthThread = std::this_thread::get_id();
                        if (blocking) gate.acquire();
                        // Before the chunks: who has heard the last of them looks at it, and may
                        // end the test.
                        ++spoken;
                        const auto half = text.size() / 2;
                        onChunk(text.substr(0, half), "/tmp/0.wav");
                        onChunk(text.substr(half), "/tmp/1.wav");
                    },
                .recordLive =
                    [this](const AudioChunk& chunk) {
                        log.push_back("record " + chunk.messageId + " " + chunk.url);
                        callbackThread = std::this_thread::get_id();
                    },
                .enqueue =
                    [this](const AudioChunk& chunk) {
                        log.push_back("enqueue " + chunk.messageId + " " + chunk.url);
                        onEnqueue();
                    },
                .offsetPersist = [this](const std::string&, TailOffset) { ++persisted; },
                .settings = [this] { return settings; },
                .onSynthesisStart =
                    [this](const std::string& id, const std::string& message) {
                        log.push_back("start " + id + " " + message);
                    },
                .dispatchToMain = dispatchToMain};
    }
    NativeNarrationSession& started() {
        session = NativeNarration::makeSession(loop, watcher, reader, options());
        session->start();
        return *session;
    }
    void say(const std::string& id, const std::string& text = "A message of some length.") {
        appendFile(path, assistantLine(id, text));
        watcher.fire(path, written);
    }
    bool heardChunks(std::size_t count) {
        return loop.runUntil([&] {
            const auto isEnqueue = [](const auto& entry) { return entry.starts_with("enqueue"); };
            return static_cast<std::size_t>(std::ranges::count_if(log, isEnqueue)) == count;
        });
    }

    using Strings = std::vector<std::string>;

    test::TempDir dir;
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    ClaudeCodeReader reader;
    std::string path = dir / "transcript.jsonl";
    bool dispatchToMain = true;
    NarrationPump::NarrationSettings settings;
    std::atomic<bool> blocking = false;
    std::counting_semaphore<> gate{0};
    std::atomic<int> spoken = 0;
    std::atomic<std::thread::id> synthThread;
    std::thread::id callbackThread;
    std::function<void()> onEnqueue = [] {};
    Strings log;
    int persisted = 0;
    std::unique_ptr<NativeNarrationSession> session;
};

TEST_F(NativeNarrationSessionTest, ALineBecomesChunksOnTheMainThreadInOrder) {
    started();
    say("u-1");
    EXPECT_TRUE(log.empty());
    ASSERT_TRUE(heardChunks(2));
    EXPECT_EQ(log, (Strings{"start 0123456789abcdef u-1", "record u-1 /tmp/0.wav",
                            "enqueue u-1 /tmp/0.wav", "record u-1 /tmp/1.wav",
                            "enqueue u-1 /tmp/1.wav"}));
    EXPECT_EQ(callbackThread, std::this_thread::get_id());
    EXPECT_NE(synthThread.load(), std::this_thread::get_id());
    EXPECT_EQ(persisted, 1);
}

TEST_F(NativeNarrationSessionTest, TheQueueIsNamedAfterTheSession) {
    EXPECT_EQ(started().synthQueue().name(), "sonra.narration.01234567");
    EXPECT_EQ(session->sessionId(), "0123456789abcdef");
    auto brief = options();
    brief.sessionId = "abc";
    const auto other = NativeNarration::makeSession(loop, watcher, reader, std::move(brief));
    EXPECT_EQ(other->synthQueue().name(), "sonra.narration.abc");
}

TEST_F(NativeNarrationSessionTest, WithoutDispatchEverythingRunsInline) {
    dispatchToMain = false;
    started();
    say("u-1");
    EXPECT_EQ(log.size(), 5U);
    EXPECT_EQ(synthThread.load(), std::this_thread::get_id());
    session->prime("u-0", "Primed, with some words.");
    EXPECT_EQ(log.size(), 10U);
}

TEST_F(NativeNarrationSessionTest, ItsTailerPollsEvery750Milliseconds) {
    dispatchToMain = false;
    started();
    appendFile(path, assistantLine("u-1", "A message of some length."));
    loop.advance(749ms);
    EXPECT_TRUE(log.empty());
    loop.advance(1ms);
    EXPECT_FALSE(log.empty());
}

TEST_F(NativeNarrationSessionTest, AStartOffsetReachesTheTailer) {
    dispatchToMain = false;
    appendFile(path, assistantLine("u-1", "A message of some length."));
    auto resumed = options();
    resumed.startOffset = TailOffset::byte(0);
    session = NativeNarration::makeSession(loop, watcher, reader, std::move(resumed));
    session->start();
    loop.advance(750ms);
    EXPECT_EQ(log.size(), 5U);
}

TEST_F(NativeNarrationSessionTest, MessagesAreSynthesisedInTheOrderOfTheirArrival) {
    blocking = true;
    started();
    for (const char* id : {"u-1", "u-2", "u-3"}) say(id);
    gate.release(3);
    ASSERT_TRUE(heardChunks(6));
    Strings starts;
    for (const auto& entry : log)
        if (entry.starts_with("start")) starts.push_back(entry.substr(entry.size() - 3));
    EXPECT_EQ(starts, (Strings{"u-1", "u-2", "u-3"}));
}

TEST_F(NativeNarrationSessionTest, APrimedIdIsNotSpokenAgain) {
    dispatchToMain = false;
    started().prime("u-1", "Primed, with some words.");
    EXPECT_EQ(log.size(), 5U);
    session->prime("u-1", "Primed, with some words.");
    say("u-1");
    EXPECT_EQ(log.size(), 5U);
    EXPECT_EQ(spoken, 1);
}

TEST_F(NativeNarrationSessionTest, PrimingGoesThroughTheQueue) {
    started().prime("u-1", "Primed, with some words.");
    say("u-1");
    say("u-2");
    ASSERT_TRUE(heardChunks(4));
    EXPECT_EQ(spoken, 2);
    EXPECT_NE(synthThread.load(), std::this_thread::get_id());
}

TEST_F(NativeNarrationSessionTest, AMessageThatCameWhilePausedIsNotDeliveredAgain) {
    dispatchToMain = false;
    settings.paused = true;
    started();
    say("u-1");
    EXPECT_EQ(log.size(), 5U);
    settings.paused = false;
    loop.advance(3s);
    EXPECT_EQ(log.size(), 5U);
}

TEST_F(NativeNarrationSessionTest, StopHaltsFurtherDeliveries) {
    dispatchToMain = false;
    started();
    session->stop();
    say("u-1");
    loop.advance(3s);
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(watcher.armed().empty());
}

TEST_F(NativeNarrationSessionTest, StopLetsPostedWorkFinish) {
    blocking = true;
    started();
    say("u-1");
    say("u-2");
    session->stop();
    gate.release(2);
    ASSERT_TRUE(heardChunks(4));
    EXPECT_EQ(spoken, 2);
}

TEST_F(NativeNarrationSessionTest, DestructionDoesNotWaitAndLateWorkIsDelivered) {
    blocking = true;
    started();
    say("u-1");
    say("u-2");
    // Were this to wait for the synthesis, it would wait for ever.
    session.reset();
    EXPECT_EQ(spoken, 0);
    gate.release(2);
    ASSERT_TRUE(heardChunks(4));
    EXPECT_EQ(log.back(), "enqueue u-2 /tmp/1.wav");
}

TEST_F(NativeNarrationSessionTest, MayBeDestroyedInACallbackOfItsOwn) {
    dispatchToMain = false;
    onEnqueue = [&] { session.reset(); };
    started();
    appendFile(path, assistantLine("u-1", "A message of some length.") +
                         assistantLine("u-2", "Another of some length."));
    watcher.fire(path, written);
    EXPECT_FALSE(session);
    EXPECT_EQ(log.back(), "enqueue u-1 /tmp/1.wav");
    started();
    session->prime("u-3", "Primed, with some words.");
    EXPECT_FALSE(session);
}

TEST_F(NativeNarrationSessionTest, ALateChunkFindsItsCallbacksAlive) {
    auto payload = std::make_shared<std::string>("owned by the callback");
    const std::weak_ptr<std::string> watched = payload;
    std::atomic<bool> intact = false;
    blocking = true;
    auto owning = options();
    owning.settings = nullptr;
    owning.onSynthesisStart = nullptr;
    owning.enqueue = [&, payload](const AudioChunk&) { intact = payload->size() == 21; };
    payload.reset();
    session = NativeNarration::makeSession(loop, watcher, reader, std::move(owning));
    session->prime("u-1", "Primed, with some words.");
    session.reset();
    gate.release();
    EXPECT_TRUE(loop.runUntil([&] { return intact.load(); }));
    EXPECT_TRUE(loop.runUntil([&] { return watched.expired(); }));
}

TEST_F(NativeNarrationSessionTest, SessionsAreSynthesisedSideBySide) {
    blocking = true;
    started();
    say("u-1");
    auto other = options();
    std::atomic<bool> otherDone = false;
    other.synth = [&](const std::string&, const std::string&, const std::string&,
                      const NarrationPump::OnChunk&) { otherDone = true; };
    const auto second = NativeNarration::makeSession(loop, watcher, reader, std::move(other));
    second->prime("u-1", "A message of some length.");
    EXPECT_TRUE(loop.runUntil([&] { return otherDone.load(); }));
    EXPECT_EQ(spoken, 0);
    gate.release();
    EXPECT_TRUE(heardChunks(2));
}

}  // namespace
}  // namespace sonra
