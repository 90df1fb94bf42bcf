#include "playback/NowPlayingSnapshotWriter.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "frame/Json.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using Writer = NowPlayingSnapshotWriter;
using State = Writer::State;

Writer::Playback playing(double elapsed, const std::string& messageId = "m1") {
    return {State::playing, messageId, elapsed, 20, 1, 3};
}

class NowPlayingSnapshotWriterTest : public testing::Test {
  protected:
    Json document() const { return json::parseObject(test::readFile(path_)).value_or(Json()); }

    test::TempDir dir_;
    const std::string path_ = dir_ / "now-playing.json";
    Writer writer_{path_};
};

TEST_F(NowPlayingSnapshotWriterTest, FirstPushWritesAllTwelveMembers) {
    writer_.updatePlayback(playing(1));
    EXPECT_GE(writer_.rev(), 1);
    const auto written = document();
    const Json wanted{{"schema", 2},
                      {"state", "playing"},
                      {"messageId", "m1"},
                      {"elapsed", 1.0},
                      {"duration", 20.0},
                      {"sessionId", ""},
                      {"live", {{"messageIndex", 0}, {"totalMessages", 0}}},
                      {"cursor",
                       {{"kind", "idle"},
                        {"messageIndex", 0},
                        {"totalKnown", 0},
                        {"chunkIndex", 1},
                        {"totalChunks", 3}}},
                      {"newLiveCount", 0},
                      {"snippet", ""},
                      {"synthesizing", false},
                      {"rev", 1}};
    EXPECT_EQ(written, wanted);
    EXPECT_EQ(written.size(), 12U);
}

TEST_F(NowPlayingSnapshotWriterTest, TicksWithinAWholeSecondAreSkipped) {
    writer_.updatePlayback(playing(1.0));
    const auto before = test::readFile(path_);
    writer_.updatePlayback(playing(1.1));
    writer_.updatePlayback(playing(1.2));
    EXPECT_EQ(writer_.rev(), 1);
    EXPECT_EQ(test::readFile(path_), before);
    writer_.updatePlayback(playing(2.0));
    EXPECT_EQ(writer_.rev(), 2);
    EXPECT_EQ(document()["elapsed"], 2.0);
}

TEST_F(NowPlayingSnapshotWriterTest, SecondsRoundToTheNearestHalvesAwayFromZero) {
    writer_.updatePlayback(playing(1.0));
    writer_.updatePlayback(playing(1.49));
    EXPECT_EQ(writer_.rev(), 1);
    writer_.updatePlayback(playing(1.5));
    EXPECT_EQ(writer_.rev(), 2);
    writer_.updatePlayback(playing(2.4));
    EXPECT_EQ(writer_.rev(), 2);
    writer_.updatePlayback(playing(2.5));
    EXPECT_EQ(writer_.rev(), 3);
}

TEST_F(NowPlayingSnapshotWriterTest, EachFieldOfTheFingerprintWrites) {
    const Writer::Playback first = playing(1);
    auto otherState = first, otherMessage = first, otherDuration = first, otherIndex = first,
         otherTotal = first;
    otherState.state = State::paused;
    otherMessage.messageId = "m2";
    otherDuration.duration = 21;
    otherIndex.chunkIndex = 2;
    otherTotal.totalChunks = 4;
    for (const auto& changed : {otherState, otherMessage, otherDuration, otherIndex, otherTotal}) {
        writer_.updatePlayback(first);
        const auto before = writer_.rev();
        writer_.updatePlayback(changed);
        EXPECT_EQ(writer_.rev(), before + 1);
    }
}

TEST_F(NowPlayingSnapshotWriterTest, IdleZeroesTheNumbersWhateverWasPassed) {
    writer_.updatePlayback({State::idle, "m1", 7.5, 20, 4, 9});
    const auto written = document();
    EXPECT_EQ(written["state"], "idle");
    EXPECT_EQ(written["messageId"], "m1");
    EXPECT_EQ(written["elapsed"], 0.0);
    EXPECT_EQ(written["duration"], 0.0);
    EXPECT_EQ(written["cursor"]["chunkIndex"], 0);
    EXPECT_EQ(written["cursor"]["totalChunks"], 0);
    writer_.updatePlayback({State::idle, "m1", 3, 2, 1, 1});
    EXPECT_EQ(writer_.rev(), 1);
}

TEST_F(NowPlayingSnapshotWriterTest, SlicesKeepEachOther) {
    writer_.updatePlayback(playing(1));
    writer_.updateCursor({"s1", Writer::History{3, 12}, 2, 4, 5});
    EXPECT_EQ(writer_.rev(), 2);
    writer_.updatePlayback({State::paused, "m1", 4, 20, 1, 3});
    EXPECT_EQ(writer_.rev(), 3);
    const auto written = document();
    EXPECT_EQ(written["state"], "paused");
    EXPECT_EQ(written["elapsed"], 4.0);
    EXPECT_EQ(written["sessionId"], "s1");
    EXPECT_EQ(written["newLiveCount"], 2);
    EXPECT_EQ(written["live"], (Json{{"messageIndex", 4}, {"totalMessages", 5}}));
    EXPECT_EQ(written["cursor"], (Json{{"kind", "history"},
                                       {"messageIndex", 3},
                                       {"totalKnown", 12},
                                       {"chunkIndex", 1},
                                       {"totalChunks", 3}}));
}

TEST_F(NowPlayingSnapshotWriterTest, LiveCursorCarriesTheLiveTotal) {
    writer_.updateCursor({"s1", Writer::Live{}, 0, 4, 5});
    EXPECT_EQ(document()["cursor"]["kind"], "live");
    EXPECT_EQ(document()["cursor"]["messageIndex"], 0);
    EXPECT_EQ(document()["cursor"]["totalKnown"], 5);
    writer_.updateCursor({"s1", Writer::Idle{}, 0, 4, 5});
    EXPECT_EQ(document()["cursor"]["kind"], "idle");
    EXPECT_EQ(document()["cursor"]["totalKnown"], 0);
}

TEST_F(NowPlayingSnapshotWriterTest, CursorAlwaysWrites) {
    for (int i = 1; i <= 3; ++i) {
        writer_.updateCursor({"s1", Writer::Live{}, 0, 0, 0});
        EXPECT_EQ(document()["rev"], i);
    }
}

TEST_F(NowPlayingSnapshotWriterTest, SynthesizingAndSnippetAreTheCoordinators) {
    writer_.updateSnippet("so it goes");
    EXPECT_EQ(document()["snippet"], "so it goes");
    writer_.updateSnippet("so it goes");
    EXPECT_EQ(writer_.rev(), 1);
    writer_.updateSynthesizing(true);
    EXPECT_EQ(document()["synthesizing"], true);
    writer_.updateSynthesizing(true);
    EXPECT_EQ(writer_.rev(), 2);
    writer_.updatePlayback(playing(1));
    EXPECT_EQ(document()["synthesizing"], true);
}

TEST_F(NowPlayingSnapshotWriterTest, LeavesOnlyTheDocumentBehind) {
    writer_.updatePlayback(playing(1));
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
        names.insert(entry.path().filename());
    EXPECT_EQ(names, std::set<std::string>{"now-playing.json"});
}

TEST_F(NowPlayingSnapshotWriterTest, MissingDirectoryIsSilentAndQuick) {
    Writer lost(dir_ / "none/now-playing.json");
    const auto start = std::chrono::steady_clock::now();
    lost.updatePlayback(playing(1));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    std::filesystem::create_directory(dir_ / "none");
    lost.updatePlayback(playing(2));
    EXPECT_EQ(json::parse(test::readFile(dir_ / "none/now-playing.json"))->at("rev"), 2);
}

TEST_F(NowPlayingSnapshotWriterTest, FailedWriteKeepsTheRecordForTheNext) {
    // A directory in the way of the temporary file stands for a disk that can't be written.
    std::filesystem::create_directory(path_ + ".tmp");
    writer_.updatePlayback(playing(1));
    EXPECT_FALSE(std::filesystem::exists(path_));
    std::filesystem::remove(path_ + ".tmp");
    writer_.updateCursor({"s1", Writer::Live{}, 0, 0, 0});
    EXPECT_EQ(document()["elapsed"], 1.0);
}

TEST_F(NowPlayingSnapshotWriterTest, AbsurdValuesStillMakeADocument) {
    writer_.updatePlayback({State::playing, "\xff\xfe", std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::infinity(), -1, 2});
    EXPECT_EQ(document()["elapsed"], 0.0);
    EXPECT_EQ(document()["duration"], 0.0);
    writer_.updatePlayback(playing(1e300));
    EXPECT_EQ(document()["elapsed"], 1e9);
}

TEST(NowPlayingSnapshotWriterPath, IsInTheSharedDirectory) {
    const test::TempHome home;
    EXPECT_EQ(Writer::defaultPath(), home.path() + "/.claude/tts/now-playing.json");
    Writer().updatePlayback(playing(1));
    EXPECT_TRUE(std::filesystem::exists(home.shared() + "/now-playing.json"));
}

}  // namespace
}  // namespace sonra
