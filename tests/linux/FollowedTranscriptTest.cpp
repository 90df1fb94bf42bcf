#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "ingest/ClaudeCodeReader.h"
#include "ingest/NativeNarration.h"
#include "ingest/SessionTailer.h"
#include "linux/InotifyFileWatcher.h"
#include "support/ManualLoop.h"
#include "support/PollLoop.h"
#include "support/TempDir.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::appendFile;
using test::assistantLine;
using test::userLine;
using test::writeFile;

/// Tailer, reader and kernel together, on real files. The poll is put out of the way, unless a test
/// asks for it: what is heard was told by a file event.
class FollowedTranscript : public testing::Test {
  protected:
    void follow(MainLoop::Duration pollInterval = std::chrono::hours(1)) {
        follow(loop, pollInterval);
    }
    void follow(MainLoop& pollLoop, MainLoop::Duration pollInterval) {
        tailer = std::make_unique<SessionTailer>(
            pollLoop, watcher, reader,
            SessionTailer::Options{
                .sessionId = "session-1",
                .startOffset = std::nullopt,
                .pathProvider = [this] { return path; },
                .sink = [this](
                            const std::string&,
                            const HistoryMessage& message) { heard.push_back(message.messageId); },
                .offsetPersist = [this](const std::string&, TailOffset) { ++ticks; },
                .pollInterval = pollInterval});
        tailer->start();
    }
    bool hears(const std::vector<std::string>& ids) {
        return loop.runUntil([&] { return heard == ids; });
    }
    bool ticksOnce() {
        return loop.runUntil([&, before = ticks] { return ticks > before; });
    }

    /// The kernel reports in order: once a later change is reported, all before it have been.
    void settle() {
        bool reported = false;
        writeFile(dir / "marker", "");
        const auto marker = watcher.watch(dir / "marker", [&](FileEvents) { reported = true; });
        appendFile(dir / "marker", "x");
        ASSERT_TRUE(loop.runUntil([&] { return reported; }));
    }

    test::TempDir dir;
    test::PollLoop loop;
    test::ManualLoop clock;  ///< for a poll that comes when the test says so
    InotifyFileWatcher watcher{loop};
    ClaudeCodeReader reader;
    std::string path = dir / "transcript.jsonl";
    std::vector<std::string> heard;
    int ticks = 0;
    std::unique_ptr<SessionTailer> tailer;
};

TEST_F(FollowedTranscript, AppendedLinesAreHeard) {
    writeFile(path, assistantLine("old", "Before."));
    follow();
    appendFile(path, userLine("A question?") + assistantLine("u-1", "One."));
    EXPECT_TRUE(hears({"u-1"}));
    appendFile(path, assistantLine("u-2", "Two."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
}

TEST_F(FollowedTranscript, ALineWrittenInHalvesIsHeardWhenItIsWhole) {
    writeFile(path, "");
    follow();
    std::ofstream agent(path, std::ios::app);
    const std::string line = assistantLine("u-1", "In two halves.");
    agent << line.substr(0, 40) << std::flush;
    ASSERT_TRUE(ticksOnce());
    EXPECT_TRUE(heard.empty());
    agent << line.substr(40) << std::flush;
    EXPECT_TRUE(hears({"u-1"}));
}

TEST_F(FollowedTranscript, ReadingDoesNotWakeIt) {
    writeFile(path, "");
    follow();
    std::ofstream agent(path, std::ios::app);
    agent << assistantLine("u-1", "One.") << std::flush;
    ASSERT_TRUE(hears({"u-1"}));
    settle();
    EXPECT_EQ(ticks, 1);
}

TEST_F(FollowedTranscript, ATruncatedFileIsReadFromItsStart) {
    writeFile(path, assistantLine("old", std::string(300, 'o')));
    follow();
    fs::resize_file(path, 0);
    ASSERT_TRUE(loop.runUntil([&] { return tailer->offset() == TailOffset::byte(0); }));
    appendFile(path, assistantLine("u-1", "New."));
    EXPECT_TRUE(hears({"u-1"}));
}

TEST_F(FollowedTranscript, ARotatedFileIsFollowedUnderItsName) {
    writeFile(path, assistantLine("old", "Old, and longer than the new one."));
    follow();
    fs::rename(path, dir / "transcript.1");
    writeFile(path, assistantLine("u-1", "New."));
    ASSERT_TRUE(hears({"u-1"}));
    appendFile(path, assistantLine("u-2", "Newer."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
}

TEST_F(FollowedTranscript, AFileRenamedOverItIsFollowed) {
    writeFile(path, assistantLine("old", "Old, and longer than the new one."));
    follow();
    writeFile(dir / "tmp", assistantLine("u-1", "New."));
    fs::rename(dir / "tmp", path);
    ASSERT_TRUE(hears({"u-1"}));
    appendFile(path, assistantLine("u-2", "Newer."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
}

TEST_F(FollowedTranscript, ADeletedAndRecreatedFileIsFoundByThePoll) {
    writeFile(path, assistantLine("old", "Old."));
    follow(std::chrono::milliseconds(20));
    std::ofstream holder(path, std::ios::app);
    fs::remove(path);
    ASSERT_TRUE(loop.runUntil([&] { return !tailer->watchedPath(); }));
    writeFile(path, assistantLine("u-1", "New, and longer than the old one."));
    ASSERT_TRUE(hears({"u-1"}));
    EXPECT_EQ(tailer->watchedPath(), path);
}

TEST_F(FollowedTranscript, AFileThatAppearsLateIsReadWhole) {
    follow(std::chrono::milliseconds(20));
    EXPECT_FALSE(tailer->watchedPath());
    writeFile(path, assistantLine("u-1", "One.") + assistantLine("u-2", "Two."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
    EXPECT_EQ(tailer->watchedPath(), path);
}

TEST_F(FollowedTranscript, AFolderRenamedAwayIsNoticedByThePollAndItsSuccessorIsWatched) {
    fs::create_directory(dir / "project");
    path = dir / "project/transcript.jsonl";
    writeFile(path, assistantLine("old", "Old."));
    follow(clock, SessionTailer::defaultPollInterval);
    fs::rename(dir / "project", dir / "away");
    clock.advance(SessionTailer::defaultPollInterval);
    EXPECT_FALSE(tailer->watchedPath());
    fs::create_directory(dir / "project");
    writeFile(path, assistantLine("u-1", "New, and longer than the old one."));
    clock.advance(SessionTailer::defaultPollInterval);
    EXPECT_EQ(heard, std::vector<std::string>{"u-1"});
    EXPECT_EQ(tailer->watchedPath(), path);
    // From here on the clock stands still: what is heard was told by a file event.
    appendFile(path, assistantLine("u-2", "Newer."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
    appendFile(dir / "away/transcript.jsonl", assistantLine("u-3", "Elsewhere."));
    const int before = ticks;
    settle();
    EXPECT_EQ(ticks, before);
}

TEST_F(FollowedTranscript, AFolderThatTakesAnothersPlaceBetweenTwoPollsIsWatched) {
    for (const auto* name : {"one", "two"}) fs::create_directory(dir / name);
    writeFile(dir / "one/transcript.jsonl", assistantLine("old", "Old, and longer than the new."));
    writeFile(dir / "two/transcript.jsonl", assistantLine("u-1", "New."));
    fs::create_directory_symlink("one", dir / "project");
    path = dir / "project/transcript.jsonl";
    follow(clock, SessionTailer::defaultPollInterval);
    fs::create_directory_symlink("two", dir / "next");
    fs::rename(dir / "next", dir / "project");
    clock.advance(SessionTailer::defaultPollInterval);
    EXPECT_EQ(heard, std::vector<std::string>{"u-1"});
    appendFile(path, assistantLine("u-2", "Newer."));
    EXPECT_TRUE(hears({"u-1", "u-2"}));
}

TEST_F(FollowedTranscript, AStoppedTailerHearsNothing) {
    writeFile(path, "");
    follow();
    appendFile(path, assistantLine("u-1", "Already on its way."));
    tailer->stop();
    settle();
    EXPECT_TRUE(heard.empty());
}

TEST_F(FollowedTranscript, TwoSessionsMayFollowOneFile) {
    writeFile(path, "");
    follow();
    const auto first = std::move(tailer);
    follow();
    appendFile(path, assistantLine("u-1", "Said once, heard by both."));
    EXPECT_TRUE(hears({"u-1", "u-1"}));
}

TEST_F(FollowedTranscript, ALineBecomesAChunkOnTheMainThread) {
    writeFile(path, "");
    std::vector<std::string> enqueued;
    const auto session = NativeNarration::makeSession(
        loop, watcher, reader,
        {.sessionId = "session-1",
         .startOffset = std::nullopt,
         .pathProvider = [this] { return path; },
         .synth = [](const std::string& text, const std::string&, const std::string&,
                     const NarrationPump::OnChunk& onChunk) { onChunk(text, "/tmp/0.wav"); },
         .recordLive = [](const AudioChunk&) {},
         .enqueue = [&](const AudioChunk& chunk) { enqueued.push_back(chunk.text); },
         .offsetPersist = [](const std::string&, TailOffset) {},
         .settings = [] { return NarrationPump::NarrationSettings{}; },
         .onSynthesisStart = nullptr});
    session->start();
    appendFile(path, assistantLine("u-1", "A **reply** that is long enough."));
    ASSERT_TRUE(loop.runUntil([&] { return !enqueued.empty(); }));
    EXPECT_EQ(enqueued, std::vector<std::string>{"A reply that is long enough."});
}

}  // namespace
}  // namespace sonra
