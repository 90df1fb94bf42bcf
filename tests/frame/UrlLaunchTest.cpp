#include "frame/UrlLaunch.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "frame/ServiceLock.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/TempDir.h"
#include "support/TestProcess.h"

namespace sonra {
namespace {

using Urls = std::vector<std::string>;

/// Everything a client sends before it hangs up.
std::string received(int server) {
    pollfd waiting{server, POLLIN, 0};
    if (poll(&waiting, 1, 5000) != 1) return {};
    const UniqueFd client(accept(server, nullptr, nullptr));
    std::string all;
    char block[4096];
    for (ssize_t got = 0; (got = recv(client.get(), block, sizeof block, 0)) > 0;)
        all.append(block, static_cast<std::size_t>(got));
    return all;
}

TEST(UrlLaunch, TakesCommandLinesThatAreAddressesAlone) {
    EXPECT_EQ(launchUrls({"sonra", "tts://session/abc"}), Urls{"tts://session/abc"});
    EXPECT_EQ(launchUrls({"sonra", "TTS://session/a", "tts://b"}),
              (Urls{"TTS://session/a", "tts://b"}));
}

TEST(UrlLaunch, LeavesEveryOtherCommandLineAlone) {
    for (const auto& args :
         {Urls{}, Urls{"sonra"}, Urls{"tts://session/abc"}, Urls{"sonra", "a.wav"},
          Urls{"sonra", "tts:a.wav"}, Urls{"sonra", "tts://a", "--captions"},
          Urls{"sonra", "--service", "--socket", "tts://a"}, Urls{"sonra", "http://tts://a"},
          Urls{"sonra", ""}})
        EXPECT_EQ(launchUrls(args), Urls{});
}

/// One more way that notes what it is asked and answers as told.
struct Road {
    OtherWay way() {
        return [this](const Urls& urls) {
            asked = urls;
            ++times;
            return leads;
        };
    }
    bool leads = false;
    int times = 0;
    Urls asked;
};

class UrlHandoverTest : public testing::Test {
  protected:
    ~UrlHandoverTest() override { releaseServiceLock(); }

    UrlHandover handOver(std::chrono::milliseconds patience = {}) {
        return handOverUrls(urls, road.way(), patience);
    }
    void stamp(const std::string& pid) const {
        test::writeFile(sharedDirectory() + "/sonra.lock", pid + "\n");
    }

    const test::TempHome home;
    const Urls urls{"tts://session/abc", "tts://a\"\n\xff"};
    Road road;
};

using Outcome = UrlHandover::Outcome;

void expectLine(const UniqueFd& server) {
    const auto line = received(server.get());
    ASSERT_EQ(line.find('\n'), line.size() - 1);
    const auto message = Json::parse(line);
    EXPECT_EQ(message.at("cmd"), "open");
    EXPECT_EQ(message.at("proto"), 1);
    EXPECT_EQ(message.at("urls"), Json::array({"tts://session/abc", "tts://a\"\n\ufffd"}));
}

TEST_F(UrlHandoverTest, WithoutAServiceTheAddressesStayWithTheCaller) {
    EXPECT_EQ(handOver().outcome, Outcome::noService);
    const UniqueFd gone(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(gone);
    shutdown(gone.get(), SHUT_RDWR);
    stamp(std::to_string(getpid()));
    EXPECT_EQ(handOver().outcome, Outcome::noService) << "a stamp without a lock";
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, AServiceAtTheDefaultSocketGetsThemInOneLine) {
    const UniqueFd server(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(server);
    EXPECT_EQ(handOver().outcome, Outcome::done);
    expectLine(server);
    EXPECT_EQ(road.times, 0);
}

TEST_F(UrlHandoverTest, AServiceElsewhereGetsThemAtTheSocketThatItsCommandLineNames) {
    ASSERT_TRUE(acquireServiceLock());
    const auto path = home.path() + "/other.sock";
    const UniqueFd server(bindUnixSocket(path));
    ASSERT_TRUE(server);
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
    road.leads = true;
    EXPECT_EQ(handOver().outcome, Outcome::done);
    EXPECT_EQ(road.asked, urls);
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
    UniqueFd server;
    const auto startsMeanwhile = [&](const Urls&) {
        server = UniqueFd(bindUnixSocket(defaultServiceSocketPath()));
        return false;
    };
    EXPECT_EQ(handOverUrls(urls, startsMeanwhile, std::chrono::seconds(20)).outcome, Outcome::done);
    expectLine(server);
}

TEST_F(UrlHandoverTest, OneThatEndsMeanwhileLeavesThemToTheCaller) {
    ASSERT_TRUE(acquireServiceLock());
    const auto endsMeanwhile = [](const Urls&) {
        releaseServiceLock();
        return false;
    };
    EXPECT_EQ(handOverUrls(urls, endsMeanwhile, std::chrono::seconds(20)).outcome,
              Outcome::noService);
}

}  // namespace
}  // namespace sonra
