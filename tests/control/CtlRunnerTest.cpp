#include "control/CtlRunner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "support/LogWatch.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

class CtlRunner : public testing::Test {
  protected:
    void SetUp() override {
        test::writeFile(home / "node", "#!/bin/sh\necho \"$2\" >> " + (home / "started") +
                                           "\nwhile [ ! -e " + (home / "go") +
                                           " ]; do sleep 0.01; done\nprintf '%s\\n' \"$@\" > " +
                                           (home / "told.tmp") + "; mv " + (home / "told.tmp") +
                                           " " + (home / "told") + "\n");
        chmod((home / "node").c_str(), 0700);
    }
    test::TempHome home;
    test::ScopedEnv ctl{"TTS_CTL_CMD", (home / "node") + " /opt/ctl.js"};
    test::ScopedEnv enabled{"TTS_DISABLE_CTL", "0"};
    test::LogWatch log;
    test::ManualLoop loop;
};

TEST_F(CtlRunner, StartsTheToolWithItsWordsAndDoesNotWait) {
    EXPECT_TRUE(runCtl({"stop-daemon", "now"}));
    EXPECT_FALSE(std::filesystem::exists(home / "told"));
    test::writeFile(home / "go", "");
    EXPECT_TRUE(loop.runUntil([&] { return std::filesystem::exists(home / "told"); }));
    EXPECT_EQ(test::readFile(home / "told"), "/opt/ctl.js\nstop-daemon\nnow\n");
}

TEST_F(CtlRunner, StartsNothingWhenItIsDisabled) {
    const test::ScopedEnv disabled("TTS_DISABLE_CTL", "1");
    test::writeFile(home / "go", "");
    EXPECT_FALSE(runCtl({"stop-daemon"}));
    EXPECT_EQ(log.records().back()["input"],
              (Json{{"subcommand", "stop-daemon"}, {"argCount", 1}}));
    // What is started behind it comes alone.
    const test::ScopedEnv allowed("TTS_DISABLE_CTL", "0");
    EXPECT_TRUE(runCtl({"install"}));
    EXPECT_TRUE(loop.runUntil([&] { return std::filesystem::exists(home / "told"); }));
    EXPECT_EQ(test::readFile(home / "started"), "install\n");
}

TEST_F(CtlRunner, ALaunchThatFailsIsLoggedWithItsReason) {
    // More than the kernel hands to a program in one string.
    const test::ScopedEnv tooLong("SONRA_TEST_TOO_LONG", std::string(200'000, 'x'));
    log.expect("ctl spawn failed");
    EXPECT_FALSE(runCtl({"stop-daemon", "now"}));
    const auto record = log.records("ctl spawn failed").back();
    EXPECT_EQ(record["level"], 50);
    EXPECT_EQ(record["input"], (Json{{"subcommand", "stop-daemon"}}));
    EXPECT_NE(record["cause"]["message"].get<std::string>().find("Argument list too long"),
              std::string::npos)
        << record["cause"];
}

TEST_F(CtlRunner, DropsTheCallWhenTheToolIsNowhere) {
    log.expect("ctl.js + node not resolvable; dropping");
    ASSERT_FALSE(runCtl({}, [] { return std::nullopt; }));
    EXPECT_EQ(log.records("ctl.js + node not resolvable; dropping").back()["input"],
              (Json{{"subcommand", "(empty)"}, {"argCount", 0}}));
}

}  // namespace
}  // namespace sonra
