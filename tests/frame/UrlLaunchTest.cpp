#include "frame/UrlLaunch.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using test::TempHome;
using Urls = std::vector<std::string>;

/// Everything a client sends before it hangs up.
std::string received(int server) {
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

TEST(UrlLaunch, WithoutAServiceTheAddressesStayWithTheCaller) {
    const TempHome home;
    EXPECT_FALSE(tryOpenInExistingService({"tts://session/abc"}));
    const UniqueFd gone(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(gone);
    shutdown(gone.get(), SHUT_RDWR);
    EXPECT_FALSE(tryOpenInExistingService({"tts://session/abc"}));
}

TEST(UrlLaunch, ARunningServiceGetsThemInOneLine) {
    const TempHome home;
    const UniqueFd server(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(server);
    EXPECT_TRUE(tryOpenInExistingService({"tts://session/abc", "tts://a\"\n\xff"}));
    const auto line = received(server.get());
    ASSERT_EQ(line.find('\n'), line.size() - 1);
    const auto message = Json::parse(line);
    EXPECT_EQ(message.at("cmd"), "open");
    EXPECT_EQ(message.at("proto"), 1);
    EXPECT_EQ(message.at("urls"), Json::array({"tts://session/abc", "tts://a\"\n\ufffd"}));
}

}  // namespace
}  // namespace sonra
