#include <gtest/gtest.h>

#include "playback/AudioQueueFixture.h"
#include "support/LogWatch.h"

namespace sonra::test {
namespace {

class AudioQueueFilesTest : public AudioQueueFixture {
  protected:
    /// A chunk whose file exists and belongs to somebody else.
    AudioChunk kept(const std::string& name) const {
        auto made = ephemeral(name);
        made.ephemeral = false;
        return made;
    }
};

TEST_F(AudioQueueFilesTest, EphemeralFileIsGoneAfterItsNaturalEnd) {
    queue_.enqueue(ephemeral("a"));
    queue_.enqueue(kept("b"));
    EXPECT_TRUE(exists("a"));
    loop_.advance(2s);
    EXPECT_FALSE(exists("a"));
    loop_.advance(2s);
    EXPECT_TRUE(exists("b"));
}

TEST_F(AudioQueueFilesTest, EphemeralFileIsGoneAfterASkip) {
    queue_.enqueue(ephemeral("a"));
    queue_.enqueue(kept("b"));
    queue_.skip();
    EXPECT_FALSE(exists("a"));
    queue_.skip();
    EXPECT_TRUE(exists("b"));
}

TEST_F(AudioQueueFilesTest, EphemeralFilesAreGoneAfterAClear) {
    queue_.enqueue(ephemeral("loaded"));
    queue_.enqueue(ephemeral("waiting"));
    queue_.enqueue(kept("other"));
    queue_.clear();
    EXPECT_FALSE(exists("loaded"));
    EXPECT_FALSE(exists("waiting"));
    EXPECT_TRUE(exists("other"));
}

TEST_F(AudioQueueFilesTest, EphemeralFileIsGoneAfterAnOpenFailure) {
    LogWatch log;
    log.expect("audio open failed");
    players_.failToOpen(path("a"), "not a sound");
    players_.failToOpen(path("b"), "not a sound");
    queue_.enqueue(ephemeral("a"));
    queue_.enqueue(kept("b"));
    EXPECT_FALSE(exists("a"));
    EXPECT_TRUE(exists("b"));
}

TEST_F(AudioQueueFilesTest, SilenceComesBeforeFileWork) {
    for (const bool skips : {true, false}) {
        for (const char* name : {"a", "b"}) queue_.enqueue(ephemeral(name));
        const auto rev = writer_->rev();
        int stops = 0;
        players_.observe([&](const std::string& call) {
            if (call != "stop a.wav") return;
            ++stops;
            EXPECT_TRUE(exists("a") && exists("b"));
            EXPECT_EQ(writer_->rev(), rev);
        });
        skips ? queue_.skip() : queue_.clear();
        EXPECT_EQ(stops, 1);
        EXPECT_FALSE(exists("a"));
        players_.observe(nullptr);
        queue_.clear();
    }
}

TEST_F(AudioQueueFilesTest, FileThatCantBeDeletedIsIgnored) {
    auto directory = ephemeral("a");
    directory.url = dir_ / "directory";
    std::filesystem::create_directory(directory.url);
    queue_.enqueue(directory);
    auto missing = ephemeral("b");
    std::filesystem::remove(missing.url);
    queue_.enqueue(missing);
    loop_.advance(4s);
    EXPECT_TRUE(std::filesystem::exists(directory.url));
    EXPECT_EQ(takeEvents().back(), "idle");
}

TEST_F(AudioQueueFilesTest, ReplacedChunksKeepTheirFiles) {
    queue_.enqueue(kept("a"));
    queue_.enqueue(ephemeral("b"));
    queue_.enqueueAll({kept("x")}, 0);
    EXPECT_TRUE(exists("b"));
}

TEST_F(AudioQueueFilesTest, OpenFailureIsReportedInWordsAndPassedOver) {
    LogWatch log;
    log.expect("audio open failed");
    players_.failToOpen(path("a"), "the sound server refused");
    testing::internal::CaptureStderr();
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "audio open failed: the sound server refused\n");
    EXPECT_EQ(log.records("audio open failed").at(0)["cause"]["message"],
              "the sound server refused");
    EXPECT_EQ(takeEvents(), Calls{"idle"});
    queue_.enqueue(chunk("b"));
    EXPECT_EQ(takeEvents(), Calls{"start b 1/1"});
}

TEST_F(AudioQueueFilesTest, FailedChunkStaysCounted) {
    LogWatch log;
    log.expect("audio open failed");
    players_.failToOpen(path("b"), "broken");
    queue_.enqueueAll(chunks({"a", "b", "c"}), 0);
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/3", "end", "start c 3/3"}));
}

TEST_F(AudioQueueFilesTest, SoundThatCantStartCountsAsAnOpenFailure) {
    LogWatch log;
    log.expect("audio open failed");
    players_.failToPlay(true);
    queue_.enqueue(ephemeral("a"));
    EXPECT_EQ(takeEvents(), Calls{"idle"});
    EXPECT_FALSE(exists("a"));
}

TEST_F(AudioQueueFilesTest, TenThousandFailuresInARowEndInOneIdle) {
    LogWatch log;
    log.expect("audio open failed");
    std::vector<AudioChunk> broken;
    for (int i = 0; i < 10'000; ++i) {
        broken.push_back(chunk("broken"));
        broken.back().url = path(std::to_string(i));
        players_.failToOpen(broken.back().url, "broken");
    }
    broken.push_back(chunk("sound"));
    testing::internal::CaptureStderr();
    queue_.enqueueAll(broken, 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(takeEvents(), Calls{"start sound 10001/10001"});
    EXPECT_EQ(log.count("audio open failed"), 10'000U);
}

TEST_F(AudioQueueFilesTest, OthersGetTheirTurnBetweenOpensThatTakeLong) {
    LogWatch log;
    log.expect("audio open failed");
    std::vector<AudioChunk> slow(3, chunk("slow"));
    players_.failToOpen(slow[0].url, "the server hangs");
    players_.observe([&](const std::string&) { loop_.advance(1s); });
    int turns = 0;
    testing::internal::CaptureStderr();
    queue_.enqueueAll(slow, 0);
    EXPECT_EQ(log.count("audio open failed"), 1U);
    loop_.post([&] { turns = static_cast<int>(log.count("audio open failed")); });
    loop_.runPosted();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.count("audio open failed"), 3U);
    EXPECT_LT(turns, 3);
    EXPECT_EQ(takeEvents(), Calls{"idle"});
}

TEST_F(AudioQueueFilesTest, FilesWithoutAnySoundEndAtOnce) {
    players_.setDuration(0);
    for (const char* name : {"a", "b"}) queue_.enqueue(ephemeral(name));
    EXPECT_EQ(loaded(), "a");
    queue_.seek(1);
    EXPECT_EQ(queue_.current()->currentTime(), 0);
    loop_.advance(0ms);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "start b 2/2", "end", "idle"}));
    EXPECT_FALSE(exists("a"));
    EXPECT_FALSE(exists("b"));
}

}  // namespace
}  // namespace sonra::test
