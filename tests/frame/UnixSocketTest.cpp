#include "frame/UnixSocket.h"

#include "frame/UniqueFd.h"
#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

namespace sonra {
namespace {

using test::TempDir;

/// A path below `directory` with exactly `bytes` bytes.
std::string pathOfLength(const TempDir& directory, std::size_t bytes) {
    const std::string start = directory / "";
    return start + std::string(bytes - start.size(), 's');
}

bool closesOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

TEST(UnixSocket, PacksAPathOf103Bytes) {
    const std::string path(103, 'p');
    sockaddr_un address{};
    ASSERT_TRUE(packSunPath(address, path));
    EXPECT_EQ(path, address.sun_path);
    EXPECT_EQ('\0', address.sun_path[103]);
}

TEST(UnixSocket, RefusesAPathOf104BytesAndCounts105) {
    const std::string path(104, 'p');
    sockaddr_un address{};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(packSunPath(address, path));
    EXPECT_EQ("tts: socket path too long (105 bytes, max 104): " + path + "\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ('\0', address.sun_path[0]);
}

TEST(UnixSocket, CountsBytesNotCharacters) {
    std::string path;
    for (int i = 0; i < 52; ++i) path += "\xC3\xA4";
    sockaddr_un address{};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(packSunPath(address, path));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("(105 bytes"));
}

TEST(UnixSocket, RefusesAnEmptyPath) {
    sockaddr_un address{};
    EXPECT_FALSE(packSunPath(address, ""));
    EXPECT_EQ(-1, bindUnixSocket(""));
    EXPECT_EQ(-1, connectUnixSocket(""));
}

TEST(UnixSocket, ListensForThisUserOnly) {
    const TempDir directory;
    const UniqueFd server(bindUnixSocket(directory / "s"));
    ASSERT_TRUE(server);
    struct stat status {};
    ASSERT_EQ(0, stat((directory / "s").c_str(), &status));
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
    EXPECT_TRUE(closesOnExec(server.get()));
}

TEST(UnixSocket, CarriesBytesOverTheLongestPath) {
    const TempDir directory;
    const std::string path = pathOfLength(directory, 103);
    const UniqueFd server(bindUnixSocket(path));
    const UniqueFd client(connectUnixSocket(path));
    ASSERT_TRUE(server);
    ASSERT_TRUE(client);
    EXPECT_TRUE(closesOnExec(client.get()));
    const UniqueFd accepted(accept(server.get(), nullptr, nullptr));
    ASSERT_EQ(2, send(client.get(), "hi", 2, MSG_NOSIGNAL));
    std::array<char, 8> bytes{};
    EXPECT_EQ(2, recv(accepted.get(), bytes.data(), bytes.size(), 0));
    EXPECT_STREQ("hi", bytes.data());
}

TEST(UnixSocket, ReplacesWhateverStandsAtThePath) {
    const TempDir directory;
    test::writeFile(directory / "s", "an ordinary file");
    const UniqueFd first(bindUnixSocket(directory / "s"));
    const UniqueFd second(bindUnixSocket(directory / "s"));
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_TRUE(UniqueFd(connectUnixSocket(directory / "s")));
}

TEST(UnixSocket, FailsWithoutADirectoryAListenerOrRoom) {
    const TempDir directory;
    EXPECT_EQ(-1, bindUnixSocket(directory / "missing/s"));
    EXPECT_EQ(-1, connectUnixSocket(directory / "nobody"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, bindUnixSocket(pathOfLength(directory, 104)));
    EXPECT_EQ(-1, connectUnixSocket(pathOfLength(directory, 104)));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(2, std::count(said.begin(), said.end(), '\n'));
}

TEST(UnixSocket, GivesUpOnAListenerThatHasStoppedAccepting) {
    const TempDir directory;
    const UniqueFd server(bindUnixSocket(directory / "s"));
    std::vector<UniqueFd> waiting;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 16; ++i) {
        UniqueFd client(connectUnixSocket(directory / "s"));
        if (!client) break;
        waiting.push_back(std::move(client));
    }
    EXPECT_LT(waiting.size(), 16U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

}  // namespace
}  // namespace sonra
