#include "ingest/SessionTailer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <thread>

#include "ingest/ClaudeCodeReader.h"
#include "support/FakeFileWatcher.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::appendFile;
using test::assistantLine;
using test::userLine;
using test::writeFile;

constexpr FileEvents bytesWritten{.written = true};
constexpr FileEvents renamed{.renamed = true};
constexpr FileEvents removed{.removed = true};

class SessionTailerTest : public testing::Test {
  protected:
    SessionTailer::Options options() {
        return {.sessionId = "session-1",
                .startOffset = startOffset,
                .pathProvider =
                    [this] {
                        onPath();
                        return path;
                    },
                .sink =
                    [this](const std::string& session, const HistoryMessage& message) {
                        sessions.push_back(session);
                        heard.push_back(message.messageId + ": " + message.text);
                        onSink();
                    },
                .offsetPersist =
                    [this](const std::string& session, TailOffset offset) {
                        sessions.push_back(session);
                        persisted.push_back(offset);
                        onPersist();
                    }};
    }
    SessionTailer& make() {
        tailer = std::make_unique<SessionTailer>(loop, watcher, reader, options());
        return *tailer;
    }
    SessionTailer& started() {
        make().start();
        return *tailer;
    }
    TailOffset end() const {
        return TailOffset::byte(static_cast<std::int64_t>(fs::file_size(path)));
    }

    using Texts = std::vector<std::string>;

    test::TempDir dir;
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    ClaudeCodeReader reader;
    std::string path = dir / "transcript.jsonl";
    std::optional<TailOffset> startOffset;
    std::function<void()> onPath = [] {};
    std::function<void()> onSink = [] {};
    std::function<void()> onPersist = [] {};
    Texts sessions;
    Texts heard;
    std::vector<TailOffset> persisted;
    std::unique_ptr<SessionTailer> tailer;
};

TEST_F(SessionTailerTest, BeforeStartTheCursorIsTheStartOffsetOrZero) {
    EXPECT_EQ(make().offset(), TailOffset::byte(0));
    startOffset = TailOffset::messageIndex(7);
    EXPECT_EQ(make().offset(), TailOffset::messageIndex(7));
    EXPECT_FALSE(tailer->started());
    EXPECT_FALSE(tailer->watchedPath());
    EXPECT_EQ(loop.armedTimers(), 0U);
}

TEST_F(SessionTailerTest, DeliversOneAppendedAssistantLineOnce) {
    writeFile(path, assistantLine("old", "An older reply."));
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "A new reply."));
    EXPECT_EQ(watcher.fire(path, bytesWritten), 1);
    EXPECT_EQ(heard, Texts{"u-1: A new reply."});
    EXPECT_EQ(sessions.front(), "session-1");
    EXPECT_EQ(followed.offset(), end());
    loop.advance(750ms);
    EXPECT_EQ(heard.size(), 1U);
    EXPECT_EQ(followed.offset(), end());
}

TEST_F(SessionTailerTest, StartDeliversNothingByItself) {
    writeFile(path, "");
    startOffset = TailOffset::byte(0);
    appendFile(path, assistantLine("u-1", "Waiting."));
    started();
    EXPECT_TRUE(heard.empty());
    EXPECT_TRUE(persisted.empty());
    loop.advance(749ms);
    EXPECT_TRUE(heard.empty());
    loop.advance(1ms);
    EXPECT_EQ(heard.size(), 1U);
}

TEST_F(SessionTailerTest, AUserLineAndAnAssistantLineTogetherAreOneDelivery) {
    writeFile(path, "");
    started();
    appendFile(path, userLine("A question?") + assistantLine("u-1", "An answer."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, Texts{"u-1: An answer."});
}

TEST_F(SessionTailerTest, DeliversInTheOrderOfTheFile) {
    writeFile(path, "");
    started();
    appendFile(path, assistantLine("u-1", "One.") + assistantLine("u-2", "Two."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, (Texts{"u-1: One.", "u-2: Two."}));
}

TEST_F(SessionTailerTest, AFileTruncatedAndRewrittenShorterIsReadFromItsStart) {
    writeFile(path, assistantLine("old", std::string(500, 'o')));
    auto& followed = started();
    writeFile(path, assistantLine("u-1", "Short."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, Texts{"u-1: Short."});
    EXPECT_EQ(followed.offset(), end());
}

TEST_F(SessionTailerTest, ALineThatComesInHalvesIsDeliveredOnceWhenItIsWhole) {
    writeFile(path, userLine("x"));
    auto& followed = started();
    const auto before = end();
    const std::string line = assistantLine("u-1", "Grüße in two halves.");
    for (std::size_t cut = 1; cut < line.size(); cut += 17) {
        fs::resize_file(path, static_cast<std::uintmax_t>(before.intValue()));
        appendFile(path, line.substr(0, cut));
        watcher.fire(path, bytesWritten);
        EXPECT_TRUE(heard.empty()) << cut;
        EXPECT_EQ(followed.offset(), before) << cut;
    }
    fs::resize_file(path, static_cast<std::uintmax_t>(before.intValue()));
    appendFile(path, line);
    watcher.fire(path, bytesWritten);
    loop.advance(750ms);
    EXPECT_EQ(heard, Texts{"u-1: Grüße in two halves."});
}

TEST_F(SessionTailerTest, AfterStopNothingIsDelivered) {
    writeFile(path, "");
    auto& followed = started();
    followed.stop();
    appendFile(path, assistantLine("u-1", "Too late."));
    EXPECT_EQ(watcher.fire(path, bytesWritten), 0);
    watcher.fireStale({.written = true, .renamed = true, .removed = true});
    loop.advance(5s);
    EXPECT_TRUE(heard.empty());
    EXPECT_TRUE(persisted.empty());
    EXPECT_EQ(loop.armedTimers(), 0U);
    EXPECT_TRUE(watcher.armed().empty());
}

TEST_F(SessionTailerTest, DestructionStops) {
    writeFile(path, "");
    started();
    tailer.reset();
    appendFile(path, assistantLine("u-1", "Too late."));
    watcher.fireStale(bytesWritten);
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(loop.armedTimers(), 0U);
    EXPECT_TRUE(watcher.armed().empty());
}

TEST_F(SessionTailerTest, AMissingTranscriptIsWatchedOnceItAppearsAndReadWhole) {
    auto& followed = started();
    EXPECT_FALSE(followed.watchedPath());
    EXPECT_EQ(followed.offset(), TailOffset::byte(0));
    loop.advance(750ms);
    EXPECT_FALSE(followed.watchedPath());
    writeFile(path, assistantLine("u-1", "First.") + assistantLine("u-2", "Second."));
    loop.advance(750ms);
    EXPECT_EQ(followed.watchedPath(), path);
    EXPECT_EQ(heard, (Texts{"u-1: First.", "u-2: Second."}));
}

TEST_F(SessionTailerTest, ARenameIsReadAndThenTheNewPathIsWatched) {
    writeFile(path, "");
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "Just before."));
    watcher.fire(path, renamed);
    EXPECT_EQ(heard, Texts{"u-1: Just before."});
    EXPECT_EQ(watcher.armings(), 2U);
    EXPECT_EQ(watcher.armed(), Texts{path});
    EXPECT_EQ(followed.watchedPath(), path);
}

TEST_F(SessionTailerTest, AfterARenameThePathIsAskedForAgain) {
    writeFile(path, "");
    const std::string next = dir / "next.jsonl";
    writeFile(next, "");
    auto& followed = started();
    int asked = 0;
    onPath = [&] {
        // The session moves on between the step and the arming.
        if (++asked == 2) path = next;
    };
    watcher.fire(path, renamed);
    EXPECT_EQ(followed.watchedPath(), next);
    EXPECT_EQ(watcher.armed(), Texts{next});
}

TEST_F(SessionTailerTest, ARotatedFileIsFollowedUnderTheOldName) {
    writeFile(path, assistantLine("old", "An older reply, of some length."));
    started();
    fs::rename(path, dir / "transcript.1");
    writeFile(path, assistantLine("u-1", "New."));
    watcher.fire(path, renamed);
    appendFile(path, assistantLine("u-2", "Newer."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, (Texts{"u-1: New.", "u-2: Newer."}));
}

TEST_F(SessionTailerTest, ADeletedFileIsPolledForAndReadFromItsStart) {
    writeFile(path, assistantLine("old", "Old."));
    auto& followed = started();
    fs::remove(path);
    watcher.fire(path, removed);
    EXPECT_FALSE(followed.watchedPath());
    EXPECT_EQ(followed.offset(), TailOffset::byte(0));
    loop.advance(3s);
    writeFile(path, assistantLine("u-1", "This is longer than what was there."));
    loop.advance(750ms);
    EXPECT_EQ(heard, Texts{"u-1: This is longer than what was there."});
    EXPECT_EQ(watcher.armed(), Texts{path});
}

TEST_F(SessionTailerTest, ASessionThatMovesToAnotherFileIsFollowedWithinOnePoll) {
    writeFile(path, "");
    auto& followed = started();
    path = dir / "second.jsonl";
    writeFile(path, assistantLine("u-1", "In the second file."));
    loop.advance(750ms);
    EXPECT_EQ(heard, Texts{"u-1: In the second file."});
    EXPECT_EQ(followed.watchedPath(), path);
    EXPECT_EQ(watcher.armed(), Texts{path});
}

TEST_F(SessionTailerTest, AnotherFileAtThePathIsWatchedByTheNextPollThoughNobodyReportedIt) {
    fs::create_directory(dir / "folder");
    path = dir / "folder/transcript.jsonl";
    writeFile(path, assistantLine("old", "A long reply that was there before."));
    auto& followed = started();
    EXPECT_EQ(watcher.armings(), 1U);
    loop.advance(3 * 750ms);
    EXPECT_EQ(watcher.armings(), 1U);
    fs::rename(dir / "folder", dir / "away");
    loop.advance(750ms);
    EXPECT_FALSE(followed.watchedPath());
    fs::rename(dir / "away", dir / "folder");
    loop.advance(750ms);
    EXPECT_EQ(followed.watchedPath(), path);
    EXPECT_EQ(watcher.armed(), Texts{path});
    fs::rename(path, path + ".old");
    writeFile(path, assistantLine("u-1", "New."));
    loop.advance(750ms);
    EXPECT_EQ(heard.back(), "u-1: New.");
    EXPECT_EQ(watcher.armings(), 3U);
    loop.advance(3 * 750ms);
    EXPECT_EQ(watcher.armings(), 3U);
}

TEST_F(SessionTailerTest, WithoutFileWatchesThePollAloneDelivers) {
    writeFile(path, "");
    watcher.refuseAll(true);
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "Polled."));
    loop.advance(750ms);
    EXPECT_EQ(heard, Texts{"u-1: Polled."});
    EXPECT_FALSE(followed.watchedPath());
    watcher.refuseAll(false);
    loop.advance(750ms);
    EXPECT_EQ(followed.watchedPath(), path);
}

TEST_F(SessionTailerTest, ChoosesTheCursorAtStart) {
    writeFile(path, assistantLine("u-1", "One.") + assistantLine("u-2", "Two."));
    const auto size = end().intValue();
    const struct {
        const char* name;
        std::optional<TailOffset> saved;
        TailOffset chosen;
    } rows[] = {
        {"none", std::nullopt, TailOffset::byte(size)},
        {"past the end", TailOffset::byte(size + 1), TailOffset::byte(size)},
        {"at the end", TailOffset::byte(size), TailOffset::byte(size)},
        {"before the end", TailOffset::byte(size - 1), TailOffset::byte(size - 1)},
        {"the start", TailOffset::byte(0), TailOffset::byte(0)},
        {"negative", TailOffset::byte(-1), TailOffset::byte(size)},
        {"of another kind", TailOffset::messageIndex(-5), TailOffset::messageIndex(-5)},
        {"a time", TailOffset::unixMs(size + 9), TailOffset::unixMs(size + 9)},
    };
    for (const auto& row : rows) {
        startOffset = row.saved;
        EXPECT_EQ(started().offset(), row.chosen) << row.name;
    }
}

TEST_F(SessionTailerTest, ASavedOffsetPastTheEndNarratesNothingOlder) {
    writeFile(path, assistantLine("u-1", "Old."));
    startOffset = TailOffset::byte(end().intValue() + 100);
    auto& followed = started();
    loop.advance(750ms);
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(followed.offset(), end());
}

TEST_F(SessionTailerTest, ASavedOffsetWithinTheFileDeliversWhatCameInTheGap) {
    writeFile(path, assistantLine("u-1", "Heard before."));
    startOffset = end();
    appendFile(path, assistantLine("u-2", "Came in the gap."));
    started();
    loop.advance(750ms);
    EXPECT_EQ(heard, Texts{"u-2: Came in the gap."});
}

TEST_F(SessionTailerTest, TheCursorIsReportedAfterEachTickWithTheSessionsId) {
    writeFile(path, "");
    started();
    loop.advance(1500ms);
    EXPECT_EQ(persisted, std::vector(2, TailOffset::byte(0)));
    EXPECT_EQ(sessions, Texts(2, "session-1"));
    appendFile(path, assistantLine("u-1", "More."));
    std::size_t reportsBeforeSink = 0;
    onSink = [&] { reportsBeforeSink = persisted.size(); };
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(persisted.back(), end());
    EXPECT_EQ(reportsBeforeSink, 2U);
}

TEST_F(SessionTailerTest, AMessageWithoutAnIdIsDropped) {
    writeFile(path, "");
    started();
    const std::string content = R"("content":[{"type":"text","text":"Nameless."}])";
    appendFile(path, R"({"type":"assistant","message":{)" + content + "}}\n");
    appendFile(path, "broken {\n" + assistantLine("u-1", "Named."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, Texts{"u-1: Named."});
}

TEST_F(SessionTailerTest, TheCursorMovesBeforeTheDelivery) {
    writeFile(path, "");
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "Once."));
    onSink = [&] {
        EXPECT_EQ(followed.offset(), end());
        followed.tickNow();
    };
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard.size(), 1U);
}

TEST_F(SessionTailerTest, StartingTwiceArmsOnce) {
    writeFile(path, "");
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "Between."));
    followed.start();
    EXPECT_EQ(loop.armedTimers(), 1U);
    EXPECT_EQ(watcher.armings(), 1U);
    loop.advance(750ms);
    EXPECT_EQ(heard.size(), 1U);
}

TEST_F(SessionTailerTest, AStoppedTailerKeepsItsCursorAndChoosesItAfreshWhenStarted) {
    writeFile(path, userLine("x"));
    auto& followed = started();
    const auto before = followed.offset();
    followed.stop();
    EXPECT_EQ(followed.offset(), before);
    appendFile(path, assistantLine("u-1", "While stopped."));
    followed.start();
    EXPECT_EQ(followed.offset(), end());
    loop.advance(750ms);
    EXPECT_TRUE(heard.empty());
    appendFile(path, assistantLine("u-2", "Running again."));
    watcher.fire(path, bytesWritten);
    EXPECT_EQ(heard, Texts{"u-2: Running again."});
}

TEST_F(SessionTailerTest, AForcedTickWorksWithoutStartAndArmsNothing) {
    writeFile(path, assistantLine("u-1", "Forced."));
    make().tickNow();
    EXPECT_EQ(heard, Texts{"u-1: Forced."});
    EXPECT_EQ(watcher.armings(), 0U);
    EXPECT_EQ(persisted.size(), 1U);
}

TEST_F(SessionTailerTest, StoppedInItsSinkItDeliversNoMore) {
    writeFile(path, "");
    auto& followed = started();
    appendFile(path, assistantLine("u-1", "One.") + assistantLine("u-2", "Two."));
    onSink = [&] { followed.stop(); };
    watcher.fire(path, {.written = true, .renamed = true});
    EXPECT_EQ(heard, Texts{"u-1: One."});
    EXPECT_TRUE(watcher.armed().empty());
    EXPECT_EQ(loop.armedTimers(), 0U);
}

TEST_F(SessionTailerTest, StoppedWhileItAsksForThePathItArmsNothing) {
    writeFile(path, "");
    // The first question comes from start, the second from a step, the third from arming anew.
    for (int stopAt = 1; stopAt <= 3; ++stopAt) {
        int asked = 0;
        auto& followed = make();
        onPath = [&] {
            if (++asked == stopAt) followed.stop();
        };
        followed.start();
        watcher.fire(path, renamed);
        EXPECT_EQ(asked, stopAt);
        EXPECT_FALSE(followed.started());
        EXPECT_TRUE(watcher.armed().empty()) << stopAt;
        EXPECT_EQ(loop.armedTimers(), 0U) << stopAt;
        EXPECT_TRUE(stopAt == 3 || persisted.empty()) << stopAt;
    }
}

TEST_F(SessionTailerTest, MayBeDestroyedInAnyCallback) {
    for (auto* callback : {&onPath, &onSink, &onPersist}) {
        for (const bool byTimer : {false, true}) {
            writeFile(path, "");
            heard.clear();
            started();
            appendFile(path, assistantLine("u-1", "One.") + assistantLine("u-2", "Two."));
            *callback = [&] { tailer.reset(); };
            if (byTimer) {
                loop.advance(2s);
            } else {
                watcher.fire(path, {.written = true, .removed = true});
            }
            *callback = [] {};
            EXPECT_FALSE(tailer);
            EXPECT_LE(heard.size(), callback == &onPersist ? 2U : 1U);
            EXPECT_EQ(loop.armedTimers(), 0U);
            EXPECT_TRUE(watcher.armed().empty());
        }
    }
}

TEST_F(SessionTailerTest, MayBeDestroyedWhileItStartsOrArmsAnew) {
    writeFile(path, "");
    onPath = [&] { tailer.reset(); };
    make().start();
    EXPECT_FALSE(tailer);
    onPath = [] {};
    started();
    int asked = 0;
    onPath = [&] {
        if (++asked == 2) tailer.reset();
    };
    watcher.fire(path, renamed);
    EXPECT_FALSE(tailer);
    EXPECT_TRUE(watcher.armed().empty());
    EXPECT_EQ(loop.armedTimers(), 0U);
}

TEST_F(SessionTailerTest, BelongsToTheMainThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    make();
    EXPECT_DEATH(std::thread([&] { tailer->tickNow(); }).join(), "not on its thread: main thread");
}

/// A reader whose answers the test sets.
class ScriptedReader : public LiveTailReader {
  public:
    std::string_view id() const override { return "scripted"; }
    TailOffset initialOffset(const std::string&) const override {
        ++lookedForEnd;
        return initial;
    }
    Reading readSince(const std::string&, TailOffset offset) const override {
        asked.push_back(offset);
        return {{}, next};
    }
    const HarnessParser& parser() const override { return claude_.parser(); }

    TailOffset initial = TailOffset::unixMs(5000);
    TailOffset next = TailOffset::unixMs(5000);
    mutable std::vector<TailOffset> asked;
    mutable int lookedForEnd = 0;

  private:
    ClaudeCodeReader claude_;
};

class SessionTailerCursorTest : public SessionTailerTest {
  protected:
    SessionTailer scriptedTailer() { return {loop, watcher, scripted, options()}; }
    ScriptedReader scripted;
};

TEST_F(SessionTailerCursorTest, ATimeNeverRunsBackward) {
    auto followed = scriptedTailer();
    followed.start();
    scripted.next = TailOffset::unixMs(3000);
    followed.tickNow();
    EXPECT_EQ(followed.offset(), TailOffset::unixMs(5000));
    scripted.next = TailOffset::unixMs(7000);
    followed.tickNow();
    EXPECT_EQ(persisted.back(), TailOffset::unixMs(7000));
}

/// Which a large store may be long in telling.
TEST_F(SessionTailerCursorTest, TheEndIsNotLookedForWhereItDoesNotMatter) {
    startOffset = TailOffset::unixMs(3000);
    auto resumed = scriptedTailer();
    resumed.start();
    EXPECT_EQ(resumed.offset(), TailOffset::unixMs(3000));
    EXPECT_EQ(scripted.lookedForEnd, 0);
    startOffset = std::nullopt;
    auto fresh = scriptedTailer();
    fresh.start();
    EXPECT_EQ(scripted.lookedForEnd, 1);
}

TEST_F(SessionTailerCursorTest, AShrunkenDocumentHoldsItsCursor) {
    // The file at the path is missing, so by its size every cursor lies behind the end.
    for (const auto cursor : {TailOffset::messageIndex(12), TailOffset::unixMs(12)}) {
        scripted.initial = scripted.next = cursor;
        auto followed = scriptedTailer();
        followed.start();
        followed.tickNow();
        EXPECT_EQ(scripted.asked.back(), cursor);
        EXPECT_EQ(followed.offset(), cursor);
    }
}

}  // namespace
}  // namespace sonra
