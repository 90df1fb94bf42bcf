#include "control/IPCServer.h"

#include "frame/UnixSocket.h"
#include "support/LogWatch.h"
#include "support/PollLoop.h"
#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>

namespace sonra {
namespace {

using test::LogWatch;
using test::PollLoop;
using test::TempDir;

constexpr auto overCap = "ipc client over byte cap, detaching";

std::string command(const std::string& name) {
    return R"({"cmd":")" + name + R"(","proto":1})";
}

/// A listening server that collects what it dispatches, and clients over real sockets.
class IPCServerTest : public testing::Test {
  protected:
    IPCServerTest() { collectFrom(*server); }

    void collectFrom(IPCServer& from) {
        from.onCommand = [this](const Json& message) { dispatched.push_back(message); };
    }
    UniqueFd connect() { return UniqueFd(connectUnixSocket(path)); }
    static void write(const UniqueFd& client, std::string_view bytes) {
        while (!bytes.empty()) {
            const auto sent = send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }
    bool dispatches(std::size_t count) {
        return loop.runUntil([&] { return dispatched.size() >= count; });
    }
    /// True once the server has closed the connection.
    bool closes(const UniqueFd& client) {
        return loop.runUntil([&] {
            char byte = 0;
            const auto got = recv(client.get(), &byte, 1, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno == ECONNRESET);
        });
    }
    /// An attached client whose other end the test holds, and its number at the server.
    std::pair<UniqueFd, int> attachPair() {
        std::array<int, 2> ends{};
        EXPECT_EQ(0,
                  socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()));
        server->attachClient(UniqueFd(ends[1]));
        return {UniqueFd(ends[0]), ends[1]};
    }

    TempDir directory;
    std::string path = directory / "s";
    PollLoop loop;
    std::vector<Json> dispatched;
    std::unique_ptr<IPCServer> server = std::make_unique<IPCServer>(loop, path);
};

TEST_F(IPCServerTest, ListensWhereItWasToldAndLogsIt) {
    const LogWatch log;
    ASSERT_TRUE(server->start());
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
    ASSERT_EQ(1U, log.count("ipc server starting"));
    EXPECT_EQ((Json{{"socketPath", path}}), log.records("ipc server starting")[0]["input"]);
    EXPECT_EQ(1U, log.count("ipc server listening"));
}

TEST_F(IPCServerTest, AnUnusableSocketPathIsSaidAndLogged) {
    LogWatch log;
    log.expect("ipc bind/listen failed");
    IPCServer nowhere(loop, directory / "missing/s");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(nowhere.start());
    EXPECT_EQ("ipc: bind/listen failed for " + (directory / "missing/s") + "\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(directory / "missing/s",
              log.records("ipc bind/listen failed")[0]["input"]["socketPath"]);
}

TEST_F(IPCServerTest, UnlinksItsSocketButNotASuccessors) {
    ASSERT_TRUE(server->start());
    server->unlinkSocket();
    EXPECT_FALSE(std::filesystem::exists(path));
    const UniqueFd successor(bindUnixSocket(path));
    server.reset();
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(connect());
}

TEST_F(IPCServerTest, RemovesItsSocketWithItself) {
    ASSERT_TRUE(server->start());
    server.reset();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(IPCServerTest, DispatchesACommandWithItsRequestIdUnchanged) {
    ASSERT_TRUE(server->start());
    const auto client = connect();
    write(client, "{\"cmd\":\"skip\",\"proto\":1,\"requestId\":\"test-req\"}\n");
    ASSERT_TRUE(dispatches(1));
    EXPECT_EQ((Json{{"cmd", "skip"}, {"proto", 1}, {"requestId", "test-req"}}), dispatched[0]);
}

TEST_F(IPCServerTest, TwoLinesInASingleReadBothDispatchInOrder) {
    ASSERT_TRUE(server->start());
    const auto client = connect();
    write(client, command("first") + "\n" + command("second") + "\n");
    ASSERT_TRUE(dispatches(2));
    EXPECT_EQ("first", dispatched[0]["cmd"]);
    EXPECT_EQ("second", dispatched[1]["cmd"]);
}

TEST_F(IPCServerTest, BytesWithoutANewlineStayUntilOneArrives) {
    const auto [client, fd] = attachPair();
    const std::string line = command("skip");
    for (std::size_t i = 0; i < line.size(); ++i) {
        write(client, line.substr(i, 1));
        ASSERT_TRUE(
            loop.runUntil([&, number = fd] { return server->bufferedBytes(number) == i + 1; }));
    }
    EXPECT_TRUE(dispatched.empty());
    write(client, "\n{\"cm");
    ASSERT_TRUE(dispatches(1));
    EXPECT_EQ(4U, server->bufferedBytes(fd));
    write(client, "d\":\"rest\",\"proto\":2}\n");
    ASSERT_TRUE(dispatches(2));
    EXPECT_EQ("rest", dispatched[1]["cmd"]);
    EXPECT_EQ(0U, server->bufferedBytes(fd));
}

TEST_F(IPCServerTest, ALargeMessageTakesSeveralReads) {
    ASSERT_TRUE(server->start());
    const auto client = connect();
    const std::string text(100'000, 't');
    write(client,
          R"({"cmd":"play","proto":2,"args":{"text":")" + text + "\"}}\n" + command("next") + "\n");
    ASSERT_TRUE(dispatches(2));
    EXPECT_EQ(text, dispatched[0]["text"]);
}

TEST_F(IPCServerTest, DropsAnUnterminatedLastLine) {
    const auto [client, fd] = attachPair();
    write(client, command("done") + "\n" + command("unfinished"));
    shutdown(client.get(), SHUT_WR);
    ASSERT_TRUE(loop.runUntil([&, number = fd] { return !server->isAttached(number); }));
    ASSERT_EQ(1U, dispatched.size());
    EXPECT_EQ("done", dispatched[0]["cmd"]);
    EXPECT_TRUE(closes(client));
}

TEST_F(IPCServerTest, NeverWritesToAClient) {
    ASSERT_TRUE(server->start());
    const auto client = connect();
    write(client, command("skip") + "\n");
    ASSERT_TRUE(dispatches(1));
    char byte = 0;
    EXPECT_EQ(-1, recv(client.get(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(IPCServerTest, AcceptsAllThatWait) {
    ASSERT_TRUE(server->start());
    std::vector<UniqueFd> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(connect());
        write(clients.back(), command(std::to_string(i)) + "\n");
    }
    EXPECT_TRUE(dispatches(8));
}

TEST_F(IPCServerTest, TurnsAwayClientsPastTheLimitAndServesTheOthers) {
    std::vector<std::pair<UniqueFd, int>> attached;
    for (std::size_t i = 0; i < IPC_MAX_CLIENTS; ++i) attached.push_back(attachPair());
    ASSERT_TRUE(server->start());
    LogWatch log;
    log.expect("ipc too many clients, dropping");
    EXPECT_TRUE(closes(connect()));
    write(attached[0].first, command("skip") + "\n");
    EXPECT_TRUE(dispatches(1));
}

TEST_F(IPCServerTest, RejectsAForeignUid) {
    server = std::make_unique<IPCServer>(loop, path, [](int) { return getuid() + 1; });
    collectFrom(*server);
    ASSERT_TRUE(server->start());
    LogWatch log;
    log.expect("ipc rejecting foreign uid");
    const auto client = connect();
    write(client, command("skip") + "\n");
    EXPECT_TRUE(closes(client));
    EXPECT_TRUE(dispatched.empty());
    const auto record = log.records("ipc rejecting foreign uid").at(0);
    EXPECT_EQ(getuid() + 1, record["input"]["uid"]);
    EXPECT_TRUE(record["input"]["fd"].is_number_integer());
}

TEST_F(IPCServerTest, DropsAPeerThatTheSystemWontName) {
    server = std::make_unique<IPCServer>(loop, path, [](int) {
        errno = ENOTCONN;
        return std::nullopt;
    });
    collectFrom(*server);
    ASSERT_TRUE(server->start());
    LogWatch log;
    log.expect("ipc getpeereid failed, dropping");
    const auto client = connect();
    write(client, command("skip") + "\n");
    EXPECT_TRUE(closes(client));
    EXPECT_TRUE(dispatched.empty());
    EXPECT_EQ(ENOTCONN, log.records("ipc getpeereid failed, dropping").at(0)["input"]["errno"]);
}

TEST_F(IPCServerTest, KnowsTheUidOfItsPeer) {
    const auto [client, fd] = attachPair();
    EXPECT_EQ(getuid(), socketPeerUid(fd));
    const UniqueFd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(std::nullopt, socketPeerUid(file.get()));
    EXPECT_EQ(ENOTSOCK, errno);
}

/// Lowers the number of descriptors that this process may have, for a scope.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit lowered{limit, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  private:
    rlimit before_{};
};

TEST_F(IPCServerTest, PausesWhenOutOfDescriptorsAndServesAfterwards) {
    ASSERT_TRUE(server->start());
    LogWatch log;
    log.expect("ipc accept failed, pausing");
    const auto client = connect();
    write(client, command("patient") + "\n");
    {
        const DescriptorLimit none(static_cast<rlim_t>(client.get()));
        ASSERT_TRUE(loop.runUntil([&] { return log.count("ipc accept failed, pausing") == 1; }));
        loop.runUntil([] { return false; }, std::chrono::milliseconds(200));
        // Without the pause this would be thousands.
        EXPECT_EQ(1U, log.count("ipc accept failed, pausing"));
        EXPECT_EQ(EMFILE, log.records("ipc accept failed, pausing").at(0)["input"]["errno"]);
    }
    EXPECT_TRUE(dispatches(1));
}

TEST_F(IPCServerTest, AppendingUnderTheCapKeepsTheClient) {
    const auto [client, fd] = attachPair();
    EXPECT_TRUE(server->appendAndCheckCap(fd, "bytes"));
    EXPECT_TRUE(server->isAttached(fd));
    EXPECT_EQ(5U, server->bufferedBytes(fd));
    EXPECT_TRUE(server->appendAndCheckCap(fd, std::string(IPC_MAX_CLIENT_BYTES - 5, 'x')));
    EXPECT_TRUE(server->isAttached(fd));
    EXPECT_EQ(IPC_MAX_CLIENT_BYTES, server->bufferedBytes(fd));
}

TEST_F(IPCServerTest, AppendingPastTheCapRemovesTheClient) {
    const auto [client, fd] = attachPair();
    EXPECT_TRUE(server->appendAndCheckCap(fd, std::string(IPC_MAX_CLIENT_BYTES, 'x')));
    LogWatch log;
    log.expect(overCap);
    EXPECT_FALSE(server->appendAndCheckCap(fd, "\n"));
    EXPECT_FALSE(server->isAttached(fd));
    EXPECT_TRUE(closes(client));
    EXPECT_EQ((Json{{"fd", fd}, {"bytes", 1'048'577}, {"cap", 1'048'576}}),
              log.records(overCap).at(0)["input"]);
    EXPECT_FALSE(server->appendAndCheckCap(fd, "more"));
}

TEST_F(IPCServerTest, AReadThatCompletesALineJustPastTheCapDetachesTheClient) {
    const auto [client, fd] = attachPair();
    const std::string line = command("late");
    const std::string filler(IPC_MAX_CLIENT_BYTES - line.size(), ' ');
    ASSERT_TRUE(server->appendAndCheckCap(fd, filler));
    LogWatch log;
    log.expect(overCap);
    write(client, line + "\n");
    EXPECT_TRUE(closes(client));
    EXPECT_TRUE(dispatched.empty());
}

TEST_F(IPCServerTest, ALineThatFillsTheCapDispatches) {
    const auto [client, fd] = attachPair();
    const std::string line = command("fits") + "\n";
    ASSERT_TRUE(
        server->appendAndCheckCap(fd, std::string(IPC_MAX_CLIENT_BYTES - line.size(), ' ')));
    write(client, line);
    EXPECT_TRUE(dispatches(1));
}

TEST_F(IPCServerTest, AClientThatNeverEndsItsLineIsDroppedAndOthersStay) {
    ASSERT_TRUE(server->start());
    LogWatch log;
    log.expect(overCap);
    const auto good = connect();
    const auto endless = connect();
    fcntl(endless.get(), F_SETFL, O_NONBLOCK);
    const std::string flood(65'536, 'x');
    EXPECT_TRUE(loop.runUntil([&] {
        const auto sent = send(endless.get(), flood.data(), flood.size(), MSG_NOSIGNAL);
        return sent < 0 && errno == EPIPE;
    }));
    EXPECT_EQ(1U, log.count(overCap));
    write(good, command("skip") + "\n");
    EXPECT_TRUE(dispatches(1));
}

TEST_F(IPCServerTest, AHandlerMayDetachItsOwnClient) {
    const auto [client, number] = attachPair();
    LogWatch log;
    log.expect(overCap);
    server->onCommand = [&, fd = number](const Json& message) {
        dispatched.push_back(message);
        server->appendAndCheckCap(fd, std::string(IPC_MAX_CLIENT_BYTES + 1, 'x'));
    };
    write(client, command("a") + "\n" + command("b") + "\nrest");
    EXPECT_TRUE(closes(client));
    EXPECT_EQ(2U, dispatched.size());
    EXPECT_FALSE(server->isAttached(number));
}

TEST_F(IPCServerTest, AHandlerMayDestroyTheServer) {
    const auto [client, fd] = attachPair();
    server->onCommand = [this, note = std::string(100, 'n')](const Json& message) {
        server.reset();
        dispatched.push_back({{"message", message}, {"note", note}});
    };
    write(client, command("a") + "\n" + command("b") + "\n");
    EXPECT_TRUE(closes(client));
    ASSERT_EQ(1U, dispatched.size());
    EXPECT_EQ(std::string(100, 'n'), dispatched[0]["note"]);
}

TEST_F(IPCServerTest, AHandlerMayAddToItsOwnClient) {
    const auto [client, number] = attachPair();
    server->onCommand = [&, fd = number](const Json& message) {
        if (dispatched.empty()) server->appendAndCheckCap(fd, "proto\":1}");
        dispatched.push_back(message);
    };
    write(client, command("a") + "\n{\"cmd\":\"b\",\"");
    ASSERT_TRUE(dispatches(1));
    write(client, "\n");
    ASSERT_TRUE(dispatches(2));
    EXPECT_EQ("b", dispatched[1]["cmd"]);
}

}  // namespace
}  // namespace sonra
