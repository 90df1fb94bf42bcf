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
        test::writeFile(home / "node", "#!/bin/sh\nwhile [ ! -e " + (home / "go") +
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
    EXPECT_FALSE(std::filesystem::exists(home / "told"));
    EXPECT_EQ(log.records().back()["input"],
              (Json{{"subcommand", "stop-daemon"}, {"argCount", 1}}));
}

TEST_F(CtlRunner, DropsTheCallWhenTheToolIsNowhere) {
    const test::ScopedEnv none("TTS_CTL_CMD", "");
    log.expect("ctl.js + node not resolvable; dropping");
    EXPECT_FALSE(runCtl({}));
    EXPECT_EQ(log.records("ctl.js + node not resolvable; dropping").back()["input"],
              (Json{{"subcommand", "(empty)"}, {"argCount", 0}}));
}

}  // namespace
}  // namespace sonra
