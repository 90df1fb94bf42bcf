#include "control/DaemonKeeper.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/ComesTrue.h"
#include "support/LogWatch.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// The id of a process that has ended.
pid_t deadProcess() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

class Keeper : public testing::Test {
  protected:
    void SetUp() override {
        test::writeFile(home / "ctl", "echo \"$@\" >>'" + (home / "told") + "'\n");
    }
    void writePid(pid_t pid) {
        test::writeFile(home / ".claude/tts/daemon.pid", std::to_string(pid) + "\n");
    }
    /// The control tool was told to start the daemon so often.
    bool wasStarted(std::size_t times) {
        return test::comesTrue(
            [&] { return test::readFile(home / "told").size() == times * sizeof("standby"); });
    }

    static constexpr auto died = "daemon has died; starting it again";

    test::TempHome home;
    test::LogWatch log;
    test::ScopedEnv allowed{"TTS_DISABLE_CTL", "0"};
    test::ScopedEnv command{"TTS_CTL_CMD", "/bin/sh " + (home / "ctl")};
    test::ManualLoop loop;
    DaemonKeeper keeper{loop};
};

TEST_F(Keeper, StartsTheDaemonWithTheServiceAndLeavesOneAloneThatLives) {
    keeper.start();
    EXPECT_TRUE(wasStarted(1));
    writePid(getpid());
    loop.advance(std::chrono::hours(1));
    EXPECT_EQ(log.count(died), 0U);
}

TEST_F(Keeper, StartsOneAgainThatDied) {
    log.expect(died);
    keeper.start();
    EXPECT_TRUE(wasStarted(1));
    writePid(deadProcess());
    loop.advance(DaemonKeeper::lookInterval - std::chrono::milliseconds(1));
    EXPECT_EQ(log.count(died), 0U);
    loop.advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(wasStarted(2));
}

TEST_F(Keeper, LeavesOneAwayThatWasAskedToEnd) {
    keeper.start();
    loop.advance(std::chrono::hours(1));
    EXPECT_EQ(log.count(died), 0U);
}

TEST_F(Keeper, TriesOneThatCannotLiveMoreAndMoreRarely) {
    log.expect(died);
    keeper.start();
    writePid(deadProcess());
    // After 30 s, and then a minute, two, four, eight, and ten from then on.
    loop.advance(DaemonKeeper::lookInterval * (1 + 2 + 4 + 8 + 16 + 20 + 20));
    EXPECT_EQ(log.count(died), 7U);
}

}  // namespace
}  // namespace sonra
