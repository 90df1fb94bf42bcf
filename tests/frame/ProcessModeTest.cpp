#include "frame/ProcessMode.h"

#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <future>

namespace sonra {
namespace {

using test::TempHome;
using Args = std::vector<std::string>;

/// The decision for a command line that isn't a plain launch.
ModeDecision decide(Args args) {
    args.insert(args.begin(), "sonra");
    return parseMode(args, [] {
        ADD_FAILURE() << "only a plain launch notifies";
        return false;
    });
}

PlayerArgs player(Args args) {
    args.insert(args.begin(), "a.wav");
    return std::get<PlayerArgs>(std::get<Mode>(decide(std::move(args))));
}

ModeDecision service(std::string socket) {
    return Mode(ServiceMode{std::move(socket)});
}

ModeDecision captions(std::string socket) {
    return Mode(CaptionsServeLegacyMode{std::move(socket)});
}

TEST(ProcessMode, PlainLaunchIsAServiceAtTheDefaultSocket) {
    const TempHome home;
    EXPECT_EQ(service(home.path() + "/.claude/tts/service.sock"),
              parseMode({"sonra"}, [] { return false; }));
    EXPECT_EQ(service(defaultServiceSocketPath()), parseMode(Args{}, [] { return false; }));
}

TEST(ProcessMode, PlainLaunchBesideAServiceEndsQuietly) {
    EXPECT_EQ(ModeDecision(EarlyExit{0, ""}), parseMode({"sonra"}, [] { return true; }));
}

TEST(ProcessMode, SocketModes) {
    const ModeDecision noService = EarlyExit{2, "--service requires --socket <path>\n"};
    const ModeDecision noCaptions = EarlyExit{2, "--captions-serve requires --socket <path>\n"};
    const std::vector<std::pair<Args, ModeDecision>> cases{
        {{"--service", "--socket", "/s"}, service("/s")},
        {{"--socket", "/s", "--service"}, service("/s")},
        {{"--service", "--socket", "/a", "--socket", "/b"}, service("/b")},
        {{"--service", "--socket", "/a", "--socket"}, service("/a")},
        {{"--service", "--socket", "--socket", "/a"}, service("--socket")},
        {{"x.wav", "--title", "--service", "--socket", "/s"}, service("/s")},
        {{"--service"}, noService},
        {{"--service", "--socket"}, noService},
        {{"--service", "--socket", ""}, noService},
        {{"--service", "--socket", "/a", "--socket", ""}, noService},
        {{"--captions-serve", "--socket", "/c"}, captions("/c")},
        {{"--captions-serve", "--socket"}, noCaptions},
    };
    for (const auto& [args, expected] : cases)
        EXPECT_EQ(expected, decide(args)) << testing::PrintToString(args);
}

TEST(ProcessMode, SocketAsTheLastTokenEndsWithStatus2) {
    const auto exit = std::get<EarlyExit>(decide({"--service", "--socket"}));
    EXPECT_EQ(2, exit.status);
    EXPECT_EQ("--service requires --socket <path>\n", exit.standardError);
}

TEST(ProcessMode, ServiceWinsOverCaptionsServe) {
    EXPECT_EQ(service("/s"), decide({"--captions-serve", "--service", "--socket", "/s"}));
}

TEST(ProcessMode, PlayerDefaults) {
    const auto args = player({});
    EXPECT_EQ("a.wav", args.wav);
    EXPECT_EQ(1.0F, args.volume);
    EXPECT_EQ("Claude narration", args.title);
    EXPECT_EQ("TTS", args.artist);
    EXPECT_EQ("", args.snippet);
    EXPECT_FALSE(args.captions);
    EXPECT_EQ(std::nullopt, args.captionsSock);
}

TEST(ProcessMode, PlayerTakesAllOptions) {
    const PlayerArgs expected{"a.wav", 0.5F, "T", "A", "S", true, "/c"};
    EXPECT_EQ(expected, player({"--volume", "50", "--title", "T", "--artist", "A", "--snippet", "S",
                                "--captions", "--captions-sock", "/c"}));
}

TEST(ProcessMode, FirstArgumentIsTheFileWhateverItLooksLike) {
    const auto decision = decide({"--title", "T"});
    EXPECT_EQ("--title", std::get<PlayerArgs>(std::get<Mode>(decision)).wav);
    EXPECT_EQ("Claude narration", std::get<PlayerArgs>(std::get<Mode>(decision)).title);
}

TEST(ProcessMode, VolumeIsAnIntegerPercentageWithinItsBounds) {
    const std::vector<std::pair<std::string, float>> cases{{"150", 1.0F},
                                                           {"-5", 0.0F},
                                                           {"0", 0.0F},
                                                           {"37", 0.37F},
                                                           {"+40", 0.4F},
                                                           {"-0", 0.0F},
                                                           {"007", 0.07F},
                                                           {"abc", 1.0F},
                                                           {"", 1.0F},
                                                           {"50.5", 1.0F},
                                                           {" 50", 1.0F},
                                                           {"50 ", 1.0F},
                                                           {"+-5", 1.0F},
                                                           {"-+5", 1.0F},
                                                           {"+", 1.0F},
                                                           {"0x10", 1.0F},
                                                           {"1e1", 1.0F},
                                                           {"-", 1.0F},
                                                           {"++5", 1.0F},
                                                           {"9223372036854775807", 1.0F},
                                                           {"-9223372036854775808", 0.0F},
                                                           {"-9223372036854775809", 1.0F},
                                                           {"9223372036854775808", 1.0F}};
    for (const auto& [value, volume] : cases)
        EXPECT_EQ(volume, player({"--volume", value}).volume) << "'" << value << "'";
    EXPECT_EQ(0.2F, player({"--volume", "20", "--volume", "9223372036854775808"}).volume);
}

TEST(ProcessMode, AValueThatIsNoVolumeIsLookedAtAgain) {
    EXPECT_EQ("T", player({"--volume", "--title", "T"}).title);
    EXPECT_TRUE(player({"--volume", "--captions"}).captions);
    EXPECT_EQ(player({}), player({"--volume", "abc"}));
}

TEST(ProcessMode, AnOptionWithoutItsValueIsIgnored) {
    for (const auto* option : {"--volume", "--title", "--artist", "--snippet", "--captions-sock"})
        EXPECT_EQ(player({}), player({option})) << option;
}

TEST(ProcessMode, UnknownTokensAreSkippedAndTheLastOfARepeatedOptionWins) {
    EXPECT_EQ("B", player({"what", "--title", "A", "-x", "--title", "B"}).title);
    EXPECT_EQ("--captions", player({"--title", "--captions"}).title);
    EXPECT_FALSE(player({"--title", "--captions"}).captions);
}

TEST(ProcessMode, NobodyIsNotifiedWithoutAService) {
    const TempHome home;
    EXPECT_FALSE(tryNotifyExistingService());
    const UniqueFd gone(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(gone);
    shutdown(gone.get(), SHUT_RDWR);
    EXPECT_FALSE(tryNotifyExistingService());
}

TEST(ProcessMode, PlainLaunchWritesExactlyOneLineToTheRunningService) {
    const TempHome home;
    const UniqueFd server(bindUnixSocket(defaultServiceSocketPath()));
    ASSERT_TRUE(server);
    EXPECT_EQ(ModeDecision(EarlyExit{0, ""}), parseMode({"sonra"}));
    const UniqueFd client(accept(server.get(), nullptr, nullptr));
    std::array<char, 256> bytes{};
    ASSERT_EQ(17, recv(client.get(), bytes.data(), bytes.size(), MSG_WAITALL));
    EXPECT_STREQ("{\"cmd\":\"search\"}\n", bytes.data());
}

}  // namespace
}  // namespace sonra
