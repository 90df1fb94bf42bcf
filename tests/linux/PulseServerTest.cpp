#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>

#include "PulseFixture.h"
#include "linux/PulseFilePlayer.h"
#include "support/LogWatch.h"

namespace sonra {
namespace {

using test::Recording;
using Clock = std::chrono::steady_clock;

constexpr auto aboutTheLimit = PulseFilePlayer::serverLimit + 1500ms;

/// A server that accepts connections and never says a word.
class MuteServer {
  public:
    explicit MuteServer(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket_.get(), 16), 0);
    }

  private:
    UniqueFd socket_;
};

/// Times that libpulse's thread went to sleep and came back.
std::uint64_t sleepsOfThePulseThread() {
    // A thread that ends during a look may hide others from it.
    for (int look = 0; look < 100; ++look)
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            if (test::readFile(task.path() / "comm") != "sonra-pulse\n") continue;
            std::ifstream status(task.path() / "status");
            for (std::string line; std::getline(status, line);)
                if (line.starts_with("voluntary_ctxt_switches:"))
                    return std::stoull(line.substr(24));
        }
    ADD_FAILURE() << "no such thread";
    return 0;
}

class PulseServerTest : public PulseFixture {
  protected:
    /// Opens and times it.
    std::pair<std::string, Clock::duration> failToOpen(const std::string& path) {
        const auto began = Clock::now();
        const auto opened = tryOpen(path);
        EXPECT_EQ(opened.player, nullptr);
        return {opened.error, Clock::now() - began};
    }
    /// A file opened now is heard whole.
    void expectHeard(double seconds = 0.2) {
        const auto samples = marked(seconds, 77);
        const test::SinkRecorder fresh;
        const auto before = finished.size();
        const auto player = open(wav(samples));
        ASSERT_NE(player, nullptr);
        ASSERT_TRUE(player->play());
        ASSERT_TRUE(untilFinished(before + 1));
        ASSERT_TRUE(loop.runUntil([&] { return fresh.silentFor(100ms); }));
        EXPECT_TRUE(finished.back());
        EXPECT_TRUE(fresh.recording().find(samples));
    }
};

TEST_F(PulseServerTest, DeathWhilePlayingEndsTheFileAndTheNextReconnects) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto player = open(wav(marked(3)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    server.kill();
    ASSERT_TRUE(untilFinished());
    runFor(100ms);
    EXPECT_EQ(finished, std::vector<bool>{false});
    EXPECT_EQ(log.records("sound broke off")[0]["result"]["reason"], "Connection terminated");
    EXPECT_FALSE(player->isPlaying());
    EXPECT_GE(player->currentTime(), 0.2);
    server.start();
    expectHeard();
}

TEST_F(PulseServerTest, DeathInAPauseIsNoticedByNobody) {
    const auto samples = marked(1.5);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.5));
    player->pause();
    runFor(200ms);
    const double position = player->currentTime();
    server.kill();
    runFor(200ms);
    EXPECT_TRUE(finished.empty());
    EXPECT_NEAR(player->currentTime(), position, 0.01);
    server.start();
    const test::SinkRecorder fresh;
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    ASSERT_TRUE(loop.runUntil([&] { return fresh.silentFor(100ms); }));
    const auto rest =
        std::span(samples).subspan(static_cast<std::size_t>((position + 0.02) * Recording::rate));
    EXPECT_TRUE(fresh.recording().find(rest));
}

TEST_F(PulseServerTest, ResumingWithoutAServerEndsTheFile) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto player = open(wav(marked(1)));
    ASSERT_TRUE(player->play());
    player->pause();
    server.kill();
    runFor(100ms);
    EXPECT_FALSE(player->play());
    EXPECT_TRUE(finished.empty());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{false});
}

TEST_F(PulseServerTest, ReasonOfAFailedResumeIsLoggedThoughNobodyWaitsForTheEnd) {
    test::LogWatch log;
    log.expect("sound broke off");
    auto player = open(wav(marked(1)));
    ASSERT_TRUE(player->play());
    player->pause();
    player->setCurrentTime(0.5);  // gives the stream back, so that `play` needs the server
    server.freeze();
    EXPECT_FALSE(player->play());
    player.reset();
    const auto records = log.records("sound broke off");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0]["level"], 40);
    EXPECT_EQ(records[0]["result"]["reason"], "Timeout");
    server.thaw();
    runFor(100ms);
    EXPECT_TRUE(finished.empty());
}

TEST_F(PulseServerTest, SeekAfterAFailedOneDoesNotTakeItsEndBack) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto player = open(wav(marked(3)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    server.kill();
    player->setCurrentTime(1);
    EXPECT_FALSE(player->isPlaying());
    player->setCurrentTime(2);
    EXPECT_TRUE(finished.empty());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{false});
    EXPECT_EQ(log.count("sound broke off"), 1U);
}

TEST_F(PulseServerTest, PauseAfterAFailedSeekDoesNotTakeItsEndBack) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto player = open(wav(marked(3)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    server.kill();
    player->setCurrentTime(1);
    player->pause();
    player->setCurrentTime(2);
    // The server is back before anybody has heard of the end.
    server.start();
    EXPECT_FALSE(player->play());
    player->setCurrentTime(0);
    ASSERT_TRUE(untilFinished());
    runFor(200ms);
    EXPECT_EQ(finished, std::vector<bool>{false});
    EXPECT_EQ(log.count("sound broke off"), 1U);
    EXPECT_EQ(server.playbackStreams(), 0U);
}

TEST_F(PulseServerTest, MissingServerFailsAtOnceWithItsReasonAndIsTriedAgain) {
    const auto path = wav(marked(0.2));
    server.kill();
    const auto [refused, refusedAfter] = failToOpen(path);
    EXPECT_EQ(refused, "sound server: Connection refused");
    EXPECT_LT(refusedAfter, PulseFilePlayer::serverLimit);
    unlink(server.socket().c_str());
    EXPECT_EQ(failToOpen(path).first, "sound server: Connection refused");
    server.start();
    expectHeard();
}

TEST_F(PulseServerTest, SilentServerIsGivenUpAfterASecondEachTime) {
    const auto path = wav(marked(0.2));
    server.kill();
    unlink(server.socket().c_str());
    {
        const MuteServer mute(server.socket());
        for (int attempt = 0; attempt < 2; ++attempt) {
            const auto [error, after] = failToOpen(path);
            EXPECT_EQ(error, "sound server: Timeout");
            EXPECT_GE(after, PulseFilePlayer::serverLimit);
            EXPECT_LT(after, aboutTheLimit);
        }
    }
    server.start();
    expectHeard();
}

TEST_F(PulseServerTest, ServerThatFreezesLaterIsGivenUpAfterASecond) {
    const auto path = wav(marked(0.2));
    open(path);
    server.freeze();
    const auto [error, after] = failToOpen(path);
    EXPECT_EQ(error, "sound server: Timeout");
    EXPECT_LT(after, aboutTheLimit);
    server.thaw();
    expectHeard();
}

TEST_F(PulseServerTest, ConnectingAheadWaitsForNobody) {
    server.freeze();
    const auto began = Clock::now();
    connection->connectAhead();
    EXPECT_LT(Clock::now() - began, PulseFilePlayer::serverLimit);
    server.thaw();
    expectHeard();
}

TEST_F(PulseServerTest, RemovedSinkEndsTheFile) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto player = open(wav(marked(3)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    server.pactl({"unload-module", "module-null-sink"});
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{false});
    EXPECT_EQ(failToOpen(wav(marked(0.2))).first, "sound server: No such entity");
    server.pactl(
        {"load-module", "module-null-sink", "sink_name=speaker", "norewinds=1", "rate=48000"});
    expectHeard();
}

TEST_F(PulseServerTest, StreamMovedToAnotherSinkGoesOn) {
    const test::SinkRecorder other("micfeed");
    const auto samples = marked(1.5);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.5));
    const auto list = server.pactl({"list", "short", "sink-inputs"});
    server.pactl({"move-sink-input", list.substr(0, list.find('\t')), "micfeed"});
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{true});
    ASSERT_TRUE(loop.runUntil([&] { return other.silentFor(100ms); }));
    const auto end = std::span(samples).last(Recording::rate / 5);
    EXPECT_TRUE(other.recording().find(end));
}

TEST_F(PulseServerTest, ConnectionAtRestDoesNotWakeUp) {
    const auto player = open(wav(marked(0.1)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    // The server's last words may come late; whatever wakes by a clock spoils every second.
    const bool slept = loop.runUntil([this] {
        const auto before = sleepsOfThePulseThread();
        runFor(1000ms);
        return sleepsOfThePulseThread() == before;
    });
    EXPECT_TRUE(slept);
}

TEST_F(PulseServerTest, ServerSeesWhoSpeaks) {
    const auto player = open(wav(marked(0.2)));
    const auto list = server.pactl({"list", "sink-inputs"});
    EXPECT_NE(list.find("media.name = \"Speech\""), std::string::npos);
    EXPECT_NE(list.find("application.id = \"dev.trelnivorn.sonra\""), std::string::npos);
    EXPECT_NE(list.find("application.name = \"Sonra\""), std::string::npos);
}

}  // namespace
}  // namespace sonra
