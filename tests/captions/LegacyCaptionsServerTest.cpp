#include "captions/LegacyCaptionsServer.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>

#include "captions/CaptionFixture.h"
#include "frame/UnixSocket.h"
#include "support/LogWatch.h"
#include "support/PollLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// A server on a real socket, steered by clients that the test holds.
class LegacyCaptionsServerTest : public testing::Test {
  protected:
    LegacyCaptionsServerTest() { EXPECT_TRUE(server_->start()); }

    std::unique_ptr<LegacyCaptionsServer> makeServer(const std::string& path) {
        return std::make_unique<LegacyCaptionsServer>(
            loop_, path, [this] { return desktop_.makeWindow(); },
            [this](int status) { statuses_.push_back(status); });
    }
    UniqueFd connect() const { return UniqueFd(connectUnixSocket(path_)); }
    /// Writes everything, letting the server read meanwhile; false once it has hung up.
    bool write(const UniqueFd& client, std::string_view bytes) {
        while (!bytes.empty()) {
            const auto sent =
                send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0 && errno != EAGAIN) return false;
            if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
            step();
        }
        return true;
    }
    void step() {
        int turns = 0;
        loop_.runUntil([&] { return ++turns > 1; });
    }
    bool shows(const std::string& text) {
        return loop_.runUntil([&] { return desktop_.text() == text; });
    }
    /// True once the server has closed the connection.
    bool closes(const UniqueFd& client) {
        return loop_.runUntil([&] {
            char byte = 0;
            const auto got = recv(client.get(), &byte, 1, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno == ECONNRESET);
        });
    }
    bool ends() {
        return loop_.runUntil([&] { return !statuses_.empty(); });
    }
    bool socketStands() const { return std::filesystem::exists(path_); }

    test::TempDir directory_;
    const std::string path_ = directory_ / "captions.sock";
    test::PollLoop loop_;
    test::CaptionDesktop desktop_{loop_};
    std::vector<int> statuses_;
    std::unique_ptr<LegacyCaptionsServer> server_ = makeServer(path_);
};

TEST_F(LegacyCaptionsServerTest, SetPutsATextUp) {
    const auto client = connect();
    write(client, "{\"cmd\":\"set\",\"text\":\"hello there\"}\n");
    EXPECT_TRUE(shows("hello there"));
    EXPECT_EQ(NarrationStatus::Phase::playing, desktop_.model->status->phase);
    EXPECT_FALSE(desktop_.panel->isVisible());
}

TEST_F(LegacyCaptionsServerTest, AnyOtherCommandCountsAsSet) {
    const auto client = connect();
    write(client, "{\"cmd\":\"whatever\",\"text\":\"one\"}\n");
    EXPECT_TRUE(shows("one"));
    write(client, "{\"text\":\"two\"}\n");
    EXPECT_TRUE(shows("two"));
    write(client, "{\"cmd\":7,\"text\":\"three\"}\n");
    EXPECT_TRUE(shows("three"));
    write(client, "{\"cmd\":\"set\",\"text\":4}\n");
    EXPECT_TRUE(shows(""));
}

TEST_F(LegacyCaptionsServerTest, ShowAndHideTheWindow) {
    const auto client = connect();
    write(client, "{\"cmd\":\"show\"}\n");
    EXPECT_TRUE(loop_.runUntil([&] { return desktop_.panel->isVisible(); }));
    write(client, "{\"cmd\":\"hide\"}\n");
    EXPECT_TRUE(loop_.runUntil([&] { return !desktop_.panel->isVisible(); }));
}

TEST_F(LegacyCaptionsServerTest, ClearTakesTheTextAway) {
    const auto client = connect();
    write(client, "{\"cmd\":\"set\",\"text\":\"hello\"}\n");
    EXPECT_TRUE(shows("hello"));
    write(client, "{\"cmd\":\"clear\"}\n");
    EXPECT_TRUE(shows(""));
    EXPECT_EQ(NarrationStatus{}, *desktop_.model->status);
}

TEST_F(LegacyCaptionsServerTest, HighlightMovesTheActiveWord) {
    const auto client = connect();
    write(client, "{\"text\":\"the quick brown\"}\n{\"cmd\":\"highlight\",\"progress\":0.6}\n");
    EXPECT_TRUE(loop_.runUntil([&] { return desktop_.activeWord() == "quick"; }));
}

TEST_F(LegacyCaptionsServerTest, AHighlightWithoutProgressMovesTheCaptionToTheStart) {
    const auto client = connect();
    for (const auto* line :
         {"{\"cmd\":\"highlight\"}\n", "{\"cmd\":\"highlight\",\"progress\":\"0.9\"}\n",
          "{\"cmd\":\"highlight\",\"progress\":true}\n"}) {
        write(client, "{\"text\":\"the quick brown\"}\n{\"cmd\":\"highlight\",\"progress\":0.6}\n");
        ASSERT_TRUE(loop_.runUntil([&] { return desktop_.activeWord() == "quick"; }));
        write(client, line);
        EXPECT_TRUE(loop_.runUntil([&] { return desktop_.activeWord().empty(); })) << line;
        EXPECT_EQ(0, *desktop_.model->progress);
    }
}

TEST_F(LegacyCaptionsServerTest, ALineInTwoWritesIsHandledOnceWhole) {
    int texts = 0;
    desktop_.model->onChange = [&](const void* field) {
        if (field == &desktop_.model->chunkText) ++texts;
    };
    const auto client = connect();
    write(client, "{\"cmd\":\"set\",\"te");
    step();
    EXPECT_EQ(0, texts);
    write(client, "xt\":\"whole\"}\n");
    EXPECT_TRUE(shows("whole"));
    EXPECT_EQ(1, texts);
}

TEST_F(LegacyCaptionsServerTest, SeveralLinesInOneReadAreHandledInOrder) {
    std::vector<std::string> texts;
    desktop_.model->onChange = [&](const void* field) {
        if (field == &desktop_.model->chunkText) texts.push_back(desktop_.text());
    };
    const auto client = connect();
    write(client, "{\"text\":\"one\"}\n{\"text\":\"two\"}\n{\"text\":\"three\"}\n");
    EXPECT_TRUE(shows("three"));
    EXPECT_EQ((std::vector<std::string>{"one", "two", "three"}), texts);
}

TEST_F(LegacyCaptionsServerTest, ABadLineIsDroppedAndTheClientStays) {
    const auto client = connect();
    write(client, "nonsense\n[1]\n\n\xFF\n{\"text\":\"after\"}\n");
    EXPECT_TRUE(shows("after"));
}

TEST_F(LegacyCaptionsServerTest, AClientThatGoesLeavesWindowAndOthersAsTheyAre) {
    auto gone = connect();
    const auto other = connect();
    write(gone, "{\"text\":\"kept\"}\n{\"text\":\"unfinis");
    EXPECT_TRUE(shows("kept"));
    gone.reset();
    step();
    EXPECT_EQ("kept", desktop_.text());
    write(other, "{\"text\":\"from the other\"}\n");
    EXPECT_TRUE(shows("from the other"));
    EXPECT_TRUE(statuses_.empty());
}

TEST_F(LegacyCaptionsServerTest, QuitEndsTheServer) {
    const auto client = connect();
    write(client, "{\"cmd\":\"quit\"}\n{\"text\":\"too late\"}\n");
    EXPECT_TRUE(ends());
    EXPECT_EQ((std::vector{0}), statuses_);
    EXPECT_FALSE(socketStands());
    EXPECT_NE("too late", desktop_.text());
}

TEST_F(LegacyCaptionsServerTest, TheCloseButtonEndsTheServerAndTellsTheTool) {
    const auto note = directory_ / "note";
    const test::ScopedEnv command("TTS_CTL_CMD", "echo > " + note);
    desktop_.panel->pressClose();
    EXPECT_TRUE(statuses_.empty());  // posted
    EXPECT_TRUE(ends());
    EXPECT_EQ((std::vector{0}), statuses_);
    EXPECT_FALSE(socketStands());
    EXPECT_TRUE(loop_.runUntil(
        [&] { return std::filesystem::exists(note) && test::readFile(note) == "captions off\n"; }));
}

TEST_F(LegacyCaptionsServerTest, TheCloseButtonEndsTheServerAlsoWithoutATool) {
    const test::ScopedEnv command("TTS_CTL_CMD", "");
    desktop_.panel->pressClose();
    EXPECT_TRUE(ends());
    EXPECT_EQ((std::vector{0}), statuses_);
}

TEST_F(LegacyCaptionsServerTest, ALongLineIsHandledAndATooLongOneDropsItsClient) {
    constexpr auto limit = LegacyCaptionsServer::maxLineBytes;
    test::LogWatch log;
    log.expect("captions line too long, dropping client");
    const auto client = connect();
    const std::string frame = R"({"text":""})";
    const std::string longText(limit - frame.size(), 'x');
    EXPECT_TRUE(write(client, R"({"text":")" + longText + "\"}\n"));
    EXPECT_TRUE(shows(longText));
    write(client, R"({"text":")" + longText + "y\"}\n");
    EXPECT_TRUE(closes(client));
    EXPECT_EQ(longText, desktop_.text());
}

TEST_F(LegacyCaptionsServerTest, MoreClientsThanTheLimitAreTurnedAway) {
    test::LogWatch log;
    log.expect("captions too many clients, dropping");
    std::vector<UniqueFd> clients;
    for (std::size_t i = 0; i < LegacyCaptionsServer::maxClients; ++i) {
        clients.push_back(connect());
        ASSERT_TRUE(clients.back());
        step();
    }
    EXPECT_TRUE(closes(connect()));
    clients.front().reset();
    step();
    const auto next = connect();
    write(next, "{\"text\":\"room again\"}\n");
    EXPECT_TRUE(shows("room again"));
}

TEST_F(LegacyCaptionsServerTest, WithoutASocketItSaysSo) {
    const auto server = makeServer(directory_ / "missing/captions.sock");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(server->start());
    EXPECT_EQ("legacy captions: bind failed\n", testing::internal::GetCapturedStderr());
}

TEST_F(LegacyCaptionsServerTest, ALaterServersSocketStays) {
    const auto later = makeServer(path_);
    ASSERT_TRUE(later->start());
    server_.reset();
    EXPECT_TRUE(socketStands());
    const auto client = connect();
    write(client, "{\"text\":\"to the later one\"}\n");
    EXPECT_TRUE(shows("to the later one"));
}

TEST_F(LegacyCaptionsServerTest, ItsSocketGoesWithIt) {
    server_.reset();
    EXPECT_FALSE(socketStands());
}

}  // namespace
}  // namespace sonra
