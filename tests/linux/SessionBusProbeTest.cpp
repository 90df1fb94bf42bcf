#include "linux/SessionBusProbe.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "linux/PrivateBus.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using test::PrivateBus;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 20s;

TEST(SessionBusProbe, AServingBusAnswers) {
    const test::TempDir dir;
    for (const auto* prefix : {"unix:path=", "unix:abstract="}) {
        const PrivateBus bus(prefix + (dir / "bus"));
        EXPECT_TRUE(busAnswers(bus.address, patience)) << bus.address;
    }
}

TEST(SessionBusProbe, ABusThatStandsStillDoesNot) {
    const test::TempDir dir;
    const PrivateBus bus("unix:path=" + (dir / "bus"));
    bus.signal(SIGSTOP);
    const auto began = Clock::now();
    EXPECT_FALSE(busAnswers(bus.address, 100ms));
    EXPECT_GE(Clock::now() - began, 100ms);
    bus.signal(SIGCONT);
    EXPECT_TRUE(busAnswers(bus.address, patience));
}

TEST(SessionBusProbe, WhereNobodyListensThereIsNoWaiting) {
    const test::TempDir dir;
    const auto began = Clock::now();
    for (const auto& address : {std::string(), "unix:path=" + (dir / "none"),
                                "unix:path=" + std::string(500, 'x'), std::string("unix:path=")})
        EXPECT_FALSE(busAnswers(address, patience)) << address;
    EXPECT_LT(Clock::now() - began, 5s);
}

TEST(SessionBusProbe, AFullQueueOfConnectionsDoesNotHoldUp) {
    const test::TempDir dir;
    const UniqueFd server(bindUnixSocket(dir / "bus"));
    ASSERT_TRUE(server);
    listen(server.get(), 0);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(busAnswers("unix:path=" + (dir / "bus"), 20ms));
}

TEST(SessionBusProbe, TakesTheFirstEntryThatCanBeReached) {
    const test::TempDir dir;
    const PrivateBus bus("unix:path=" + (dir / "a%20b"));
    ASSERT_EQ(access((dir / "a b").c_str(), F_OK), 0);
    EXPECT_TRUE(busAnswers("unix:path=" + (dir / "none") + ";" + bus.address, patience));
    EXPECT_FALSE(busAnswers("unix:path=" + (dir / "a%2b") + ";unix:path=%", patience));
}

TEST(SessionBusProbe, AddressesThatCannotBeAskedPass) {
    EXPECT_TRUE(busAnswers("tcp:host=localhost,port=1", patience));
    EXPECT_TRUE(busAnswers("unix:path=/nowhere;tcp:host=localhost,port=1", patience));
}

TEST(SessionBusProbe, TheAddressIsTheVariablesElseTheRuntimeDirectorys) {
    const test::TempDir dir;
    const test::ScopedEnv runtime("XDG_RUNTIME_DIR", dir.path());
    {
        const test::ScopedEnv variable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/named");
        EXPECT_EQ(sessionBusAddress(), "unix:path=/named");
    }
    const test::ScopedEnv unnamed("DBUS_SESSION_BUS_ADDRESS", "");
    EXPECT_EQ(sessionBusAddress(), "");
    test::writeFile(dir / "bus", "");
    EXPECT_EQ(sessionBusAddress(), "unix:path=" + (dir / "bus"));
    const test::ScopedEnv relative("XDG_RUNTIME_DIR", "run");
    EXPECT_EQ(sessionBusAddress(), "");
}

}  // namespace
}  // namespace sonra
