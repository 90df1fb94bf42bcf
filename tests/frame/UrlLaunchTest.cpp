#include "frame/UrlLaunch.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "frame/ServiceLock.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/TempDir.h"
#include "support/TestProcess.h"
#include "support/TimeLimit.h"

namespace sonra {
namespace {

using Urls = std::vector<std::string>;

/// Listens at a path and reads to its end what one client sends, on a thread of its own.
class Listener {
  public:
    explicit Listener(const std::string& path) : server_(bindUnixSocket(path)) {
        EXPECT_TRUE(server_);
        thread_ = std::thread([this] { readClient(); });
    }
    ~Listener() { received(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// What the client sent; empty if none came in time.
    std::string received() {
        if (thread_.joinable()) thread_.join();
        return all_;
    }

  private:
    void readClient() {
        pollfd waiting{server_.get(), POLLIN, 0};
        if (poll(&waiting, 1, 20'000) != 1) return;
        const UniqueFd client(accept(server_.get(), nullptr, nullptr));
        const timeval limit{20, 0};
        setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char block[4096];
        for (ssize_t got = 0; (got = recv(client.get(), block, sizeof block, 0)) > 0;)
            all_.append(block, static_cast<std::size_t>(got));
    }

    const UniqueFd server_;
    std::string all_;
    std::thread thread_;
};

TEST(UrlLaunch, TakesCommandLinesThatAreAddressesAlone) {
    EXPECT_EQ(launchUrls({"sonra", "tts://session/abc"}), Urls{"tts://session/abc"});
    EXPECT_EQ(launchUrls({"sonra", "TTS://session/a", "tts://b"}),
              (Urls{"tts://session/a", "tts://b"}));
}

TEST(UrlLaunch, ASchemeIsWrittenInAnyLetters) {
    EXPECT_EQ(withPlainScheme("tTs://Session/A"), "tts://Session/A");
    EXPECT_EQ(withPlainScheme("TTS:a"), "TTS:a");
    EXPECT_EQ(withPlainScheme(""), "");
}

TEST(UrlLaunch, LeavesEveryOtherCommandLineAlone) {
    for (const auto& args :
         {Urls{}, Urls{"sonra"}, Urls{"tts://session/abc"}, Urls{"sonra", "a.wav"},
          Urls{"sonra", "tts:a.wav"}, Urls{"sonra", "tts://a", "--captions"},
          Urls{"sonra", "--service", "--socket", "tts://a"}, Urls{"sonra", "http://tts://a"},
          Urls{"sonra", ""}})
        EXPECT_EQ(launchUrls(args), Urls{});
}

/// What each client that waits at the server has sent; they are hung up on.
std::vector<std::string> linesWaitingAt(int server) {
    std::vector<std::string> lines;
    for (pollfd waiting{server, POLLIN, 0}; poll(&waiting, 1, 0) == 1;) {
        const UniqueFd client(accept(server, nullptr, nullptr));
        std::string all;
        char block[4096];
        for (ssize_t got = 0; (got = recv(client.get(), block, sizeof block, 0)) > 0;)
            all.append(block, static_cast<std::size_t>(got));
        lines.push_back(all);
    }
    return lines;
}

/// One more way that notes what it is asked and answers as told.
struct Road {
    OtherWay way() {
        return [this](const Urls& urls) {
            asked = urls;
            ++times;
            return answer;
        };
    }
    UrlDelivery answer = UrlDelivery::notTaken;
    int times = 0;
    Urls asked;
};

class UrlHandoverTest : public testing::Test {
  protected:
    ~UrlHandoverTest() override { releaseServiceLock(); }

    UrlHandover handOver(std::chrono::milliseconds all = {}) {
        return handOverUrls(urls, road.way(), {.all = all, .reading = std::chrono::seconds(20)});
    }
    /// With no patience for a service that doesn't read.
    UrlHandover handOverHastily() {
        using std::chrono::milliseconds;
        return handOverUrls(urls, road.way(),
                            {.all = milliseconds(200), .reading = milliseconds(10)});
    }
    void stamp(const std::string& pid) const {
        test::writeFile(sharedDirectory() + "/sonra.lock", pid + "\n");
    }

    static constexpr UrlPatience waits{std::chrono::seconds(20), std::chrono::seconds(20)};
    const test::TimeLimit limit{90};
    const test::TempHome home;
    const Urls urls{"tts://session/abc", "tts://a\"\n\xff"};
    Road road;
};

using Outcome = UrlHandover::Outcome;

void expectLine(Listener& server) {
    const auto line = server.received();
    ASSERT_FALSE(line.empty());
    ASSERT_EQ(line.find('\n'), line.size() - 1);
    const auto message = Json::parse(line);
    EXPECT_EQ(message.at("cmd"), "open");
    EXPECT_EQ(message.at("proto"), 1);
    EXPECT_EQ(message.at("urls"), Json::array({"tts://session/abc", "tts://a\"\n\ufffd"}));
}

TEST_F(UrlHandoverTest, WithoutAServiceThisProcessIsIt) {
    const UniqueFd gone(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(gone);
    shutdown(gone.get(), SHUT_RDWR);
    stamp("1");
    EXPECT_EQ(handOver().outcome, Outcome::isService) << "a stamp without a lock";
    EXPECT_TRUE(holdsServiceLock());
    EXPECT_EQ(tryServiceLock(), ServiceLockTry::held);
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, SeveralAtOnceNeverTurnAwayOneThatStarts) {
    // Somebody tries the lock for real while addresses are handed over: one of them has it.
    for (int round = 0; round < 200; ++round) {
        auto other = ServiceLockTry::failed;
        std::thread starter([&other] { other = tryServiceLock(); });
        const auto outcome = handOver().outcome;
        starter.join();
        EXPECT_NE(outcome == Outcome::isService, other == ServiceLockTry::taken) << round;
        releaseServiceLock();
    }
}

TEST_F(UrlHandoverTest, ALockThatNobodyCanTakeIsSaidToBeSo) {
    ASSERT_EQ(mkdir((sharedDirectory() + "/sonra.lock").c_str(), 0700), 0);
    EXPECT_EQ(handOver(std::chrono::seconds(20)).outcome, Outcome::noLock);
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, AServiceThatHangsIsPassedOver) {
    ASSERT_TRUE(acquireServiceLock());
    const UniqueFd hung(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(hung);
    road.answer = UrlDelivery::taken;
    EXPECT_EQ(handOverHastily().outcome, Outcome::done);
    EXPECT_EQ(road.times, 1);
}

TEST_F(UrlHandoverTest, AServiceThatIsBusyIsSentThemOnceAndNotSaidToBeOutOfReach) {
    ASSERT_TRUE(acquireServiceLock());
    const UniqueFd busy(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(busy);
    const auto handover = handOverHastily();
    EXPECT_EQ(handover.outcome, Outcome::unanswered);
    EXPECT_EQ(handover.holder, getpid());
    EXPECT_EQ(road.times, 1);
    // What it finds once it has time.
    EXPECT_EQ(linesWaitingAt(busy.get()).size(), 1U);
}

TEST_F(UrlHandoverTest, AServiceThatReadsAfterAWhileHasThem) {
    ASSERT_TRUE(acquireServiceLock());
    const UniqueFd busy(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(busy);
    const auto readsMeanwhile = [&](const Urls&) {
        EXPECT_EQ(linesWaitingAt(busy.get()).size(), 1U);
        return UrlDelivery::notTaken;
    };
    const UrlPatience patience{.all = std::chrono::seconds(20),
                               .reading = std::chrono::milliseconds(10)};
    EXPECT_EQ(handOverUrls(urls, readsMeanwhile, patience).outcome, Outcome::done);
    EXPECT_TRUE(linesWaitingAt(busy.get()).empty());
}

TEST_F(UrlHandoverTest, AServiceThatHangsUpUnreadIsPassedOver) {
    ASSERT_TRUE(acquireServiceLock());
    const UniqueFd server(bindUnixSocket(defaultServiceSocketPath()));
    std::thread busy([&server] {
        pollfd waiting{server.get(), POLLIN, 0};
        if (poll(&waiting, 1, 20'000) != 1) return;
        const UniqueFd client(accept(server.get(), nullptr, nullptr));
        waiting.fd = client.get();
        poll(&waiting, 1, 20'000);
    });
    road.answer = UrlDelivery::taken;
    EXPECT_EQ(handOver().outcome, Outcome::done);
    busy.join();
    EXPECT_EQ(road.times, 1);
}

TEST_F(UrlHandoverTest, AServiceAtTheDefaultSocketGetsThemInOneLine) {
    Listener server(defaultServiceSocketPath());
    EXPECT_EQ(handOver().outcome, Outcome::done);
    expectLine(server);
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, AServiceElsewhereGetsThemAtTheSocketThatItsCommandLineNames) {
    ASSERT_TRUE(acquireServiceLock());
    const auto path = home.path() + "/other.sock";
    Listener server(path);
    const test::TestProcess service(
        {"sh", "-c", "echo $$; kill -STOP $$", "sonra", "--service", "--socket", path});
    char digits[16] = {};
    ASSERT_GT(read(service.output(), digits, sizeof digits - 1), 0);
    stamp(std::to_string(std::atoi(digits)));
    EXPECT_EQ(handOver().outcome, Outcome::done);
    expectLine(server);
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, AServiceWithoutASocketIsReachedTheOtherWay) {
    ASSERT_TRUE(acquireServiceLock());
    road.answer = UrlDelivery::taken;
    EXPECT_EQ(handOver().outcome, Outcome::done);
    EXPECT_EQ(road.asked, urls);
}

TEST_F(UrlHandoverTest, AServiceThatIsSilentTheOtherWayIsAskedOnceAndNotSaidToBeOutOfReach) {
    ASSERT_TRUE(acquireServiceLock());
    road.answer = UrlDelivery::unanswered;
    const auto handover = handOver(std::chrono::milliseconds(200));
    EXPECT_EQ(handover.outcome, Outcome::unanswered);
    EXPECT_EQ(handover.holder, getpid());
    EXPECT_EQ(road.times, 1);
}

TEST_F(UrlHandoverTest, AServiceThatIsSilentTheOtherWayMayStillTakeThemAtItsSocket) {
    ASSERT_TRUE(acquireServiceLock());
    std::optional<Listener> server;
    const auto listensMeanwhile = [&](const Urls&) {
        server.emplace(defaultServiceSocketPath());
        return UrlDelivery::unanswered;
    };
    EXPECT_EQ(handOverUrls(urls, listensMeanwhile, waits).outcome, Outcome::done);
    ASSERT_TRUE(server);
    expectLine(*server);
}

TEST_F(UrlHandoverTest, OneThatIsReachedNoWayIsNamed) {
    ASSERT_TRUE(acquireServiceLock());
    const auto handover = handOver();
    EXPECT_EQ(handover.outcome, Outcome::unreachable);
    EXPECT_EQ(handover.holder, getpid());
    EXPECT_EQ(road.times, 1);
    stamp("not a number");
    EXPECT_EQ(handOver().holder, std::nullopt);
}

TEST_F(UrlHandoverTest, OneThatIsJustStartingIsWaitedFor) {
    ASSERT_TRUE(acquireServiceLock());
    std::optional<Listener> server;
    const auto startsMeanwhile = [&](const Urls&) {
        if (!server) server.emplace(defaultServiceSocketPath());
        return UrlDelivery::notTaken;
    };
    EXPECT_EQ(handOverUrls(urls, startsMeanwhile, waits).outcome, Outcome::done);
    ASSERT_TRUE(server);
    expectLine(*server);
}

TEST_F(UrlHandoverTest, OneThatEndsMeanwhileLeavesItsPlaceToThisProcess) {
    ASSERT_TRUE(acquireServiceLock());
    const auto endsMeanwhile = [](const Urls&) {
        releaseServiceLock();
        return UrlDelivery::notTaken;
    };
    EXPECT_EQ(handOverUrls(urls, endsMeanwhile, waits).outcome, Outcome::isService);
    EXPECT_TRUE(holdsServiceLock());
}

}  // namespace
}  // namespace sonra
