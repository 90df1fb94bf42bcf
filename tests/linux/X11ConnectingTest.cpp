#include "linux/X11Connecting.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>

#include "PrivateXServer.h"
#include "linux/X11Link.h"
#include "support/ComesTrue.h"
#include "support/LogWatch.h"
#include "support/TimeLimit.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using X11Connecting::Outcome;

TEST(X11Connecting, AServerThatStandsStillIsGivenUpInTimeAndTakenUpAgain) {
    const test::TimeLimit limit(40);
    const test::PrivateXServer server;
    test::LogWatch log;
    server.signal(SIGSTOP);
    const auto began = Clock::now();
    EXPECT_EQ(X11Connecting::connect(server.display(), 200ms).outcome, Outcome::silent);
    EXPECT_LT(Clock::now() - began, 5s);
    // It is asked once, however often one asks for it, and not waited for again.
    const auto again = Clock::now();
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(X11Connecting::connect(server.display(), 10s).outcome, Outcome::silent);
    EXPECT_LT(Clock::now() - again, 5s);
    EXPECT_EQ(log.count("x server doesn't answer, it is not waited for"), 1U);
    server.signal(SIGCONT);
    X11Connecting::Result result;
    EXPECT_TRUE(test::comesTrue([&] {
        result = X11Connecting::connect(server.display(), 0ms);
        return result.outcome != Outcome::silent;
    }));
    ASSERT_EQ(result.outcome, Outcome::connected);
    EXPECT_EQ(xcb_connection_has_error(result.connection), 0);
    xcb_disconnect(result.connection);
}

TEST(X11Connecting, ADisplayThatIsNotThereIsRefused) {
    const auto result = X11Connecting::connect(test::nobodysDisplay, 10s);
    EXPECT_EQ(result.outcome, Outcome::refused);
    EXPECT_EQ(result.connection, nullptr);
}

TEST(X11Link, TellsAServerThatStandsStillFromNone) {
    const test::TimeLimit limit(40);
    const test::PrivateXServer server;
    bool silent = false;
    server.signal(SIGSTOP);
    EXPECT_EQ(X11Link::open(server.display(), {}, &silent), nullptr);
    EXPECT_TRUE(silent);
    server.signal(SIGCONT);
    EXPECT_TRUE(
        test::comesTrue([&] { return X11Link::open(server.display(), {}, &silent) != nullptr; }));
    EXPECT_FALSE(silent);
    EXPECT_EQ(X11Link::open(test::nobodysDisplay, {}, &silent), nullptr);
    EXPECT_FALSE(silent);
}

TEST(X11Link, AnAnswerOfAServerThatStoppedIsNotWaitedForWithoutEnd) {
    const test::TimeLimit limit(40);
    const test::PrivateXServer server;
    const auto link = X11Link::open(server.display(), {20s, 300ms});
    ASSERT_TRUE(link);
    ASSERT_TRUE(test::comesTrue([&] { return link->sync(); }));
    server.signal(SIGSTOP);
    const auto began = Clock::now();
    EXPECT_FALSE(link->sync());
    EXPECT_LT(Clock::now() - began, 5s);
    server.signal(SIGCONT);
    EXPECT_TRUE(test::comesTrue([&] { return link->sync(); }));
}

}  // namespace
}  // namespace sonra
