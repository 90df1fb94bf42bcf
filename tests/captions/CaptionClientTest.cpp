#include "captions/CaptionClient.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

#include "frame/UnixSocket.h"
#include "support/Asleep.h"
#include "support/PollLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// A listener that reads only when the test says so.
class CaptionClientTest : public testing::Test {
  protected:
    CaptionClientTest() : accepted_(accept(listener_.get(), nullptr, nullptr)) {}

    /// Everything that has arrived.
    std::string received() const {
        std::string all;
        std::array<char, 65536> bytes;  // NOLINT: filled by recv
        for (;;) {
            const auto got = recv(accepted_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
            if (got <= 0) return all;
            all.append(bytes.data(), static_cast<std::size_t>(got));
        }
    }

    test::PollLoop loop_;
    test::TempDir directory_;
    const std::string path_ = directory_ / "s";
    const UniqueFd listener_{bindUnixSocket(path_)};
    const std::unique_ptr<CaptionClient> client_ = CaptionClient::connect(path_);
    UniqueFd accepted_;
};

TEST_F(CaptionClientTest, SendsOneObjectALine) {
    ASSERT_TRUE(client_);
    client_->send({{"cmd", "set"}, {"text", "one\ntwo"}});
    client_->send({{"cmd", "highlight"}, {"progress", 0.5}});
    EXPECT_EQ(
        "{\"cmd\":\"set\",\"text\":\"one\\ntwo\"}\n"
        "{\"cmd\":\"highlight\",\"progress\":0.5}\n",
        received());
}

TEST_F(CaptionClientTest, IsNoneWhereNobodyListens) {
    EXPECT_FALSE(CaptionClient::connect(directory_ / "nobody"));
}

TEST_F(CaptionClientTest, AServerThatHasGoneIsIgnored) {
    accepted_.reset();
    for (int i = 0; i < 3; ++i) client_->send({{"cmd", "show"}});
}

TEST_F(CaptionClientTest, NeverWaitsForAServerThatDoesNotRead) {
    const std::string text(100'000, 'x');
    const auto slept = test::Asleep::during([&] {
        for (int i = 0; i < 200; ++i) client_->send({{"text", text}, {"n", i}});
    });
    EXPECT_LT(slept, std::chrono::milliseconds(900));
}

TEST_F(CaptionClientTest, WhatArrivesAreWholeLines) {
    const std::string text(100'000, 'x');
    for (int i = 0; i < 20; ++i) client_->send({{"text", text}, {"n", i}});
    std::string all = received();
    // The rest of a line that was cut goes out before the next one.
    client_->send({{"n", "last"}});
    all += received();
    client_->send({{"n", "behind"}});
    all += received();
    std::size_t lines = 0;
    for (std::size_t at = 0, end = 0; (end = all.find('\n', at)) != std::string::npos;
         at = end + 1) {
        EXPECT_TRUE(json::parseObject(std::string_view(all).substr(at, end - at)));
        ++lines;
    }
    EXPECT_GE(lines, 2U);
    EXPECT_LT(lines, 22U);
    EXPECT_TRUE(all.ends_with("{\"n\":\"behind\"}\n"));
}

}  // namespace
}  // namespace sonra
