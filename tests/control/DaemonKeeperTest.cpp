#include "control/DaemonKeeper.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <sstream>

#include "support/ComesTrue.h"
#include "support/LogWatch.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// The id of no process, beyond all that the kernel gives.
constexpr pid_t deadProcess = std::numeric_limits<pid_t>::max();

/// It does nothing any more, though perhaps nobody has asked for its exit status.
bool isOver(pid_t process) {
    const auto stat = test::readFile("/proc/" + std::to_string(process) + "/stat");
    const auto name = stat.rfind(") ");
    return name == std::string::npos || stat.compare(name + 2, 1, "Z") == 0;
}

class Keeper : public testing::Test {
  protected:
    void SetUp() override { useTool("exit 0"); }
    /// A control tool that writes down who it is and what it is told, and then does as it is given.
    void useTool(const std::string& script) {
        test::writeFile(home / "ctl", "echo $$ $PPID >'" + (home / "ids") + "'; echo \"$@\" >>'" +
                                          (home / "told") + "'\n" + script + "\n");
    }
    void writePid(pid_t pid) {
        test::writeFile(home / ".claude/tts/daemon.pid", std::to_string(pid) + "\n");
    }
    /// The control tool was told to start the daemon so often.
    bool wasStarted(std::size_t times) {
        return test::comesTrue(
            [&] { return test::readFile(home / "told").size() == times * sizeof("standby"); });
    }

    /// The control tool has gone, and the shell that may stand between.
    bool hasEnded() {
        std::istringstream ids(test::readFile(home / "ids"));
        pid_t tool = 0;
        pid_t parent = 0;
        ids >> tool >> parent;
        return tool > 0 && test::comesTrue([&] {
                   return isOver(tool) && (parent == getpid() || isOver(parent));
               });
    }

    static constexpr auto failed = "daemon couldn't be started; trying again";
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
    ASSERT_TRUE(wasStarted(1));
    ASSERT_TRUE(hasEnded());
    writePid(deadProcess);
    loop.advance(DaemonKeeper::lookInterval - std::chrono::milliseconds(1));
    EXPECT_EQ(log.count(died), 0U);
    loop.advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(wasStarted(2));
}

TEST_F(Keeper, WaitsForAStartThatIsUnderWayThoughTheFileNamesOneThatDied) {
    log.expect(died);
    useTool("while ! [ -e '" + (home / "go") + "' ]; do sleep 0.05; done");
    writePid(deadProcess);
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    loop.advance(DaemonKeeper::lookInterval);
    EXPECT_EQ(log.count(died), 0U);
    test::writeFile(home / "go", "");
    ASSERT_TRUE(hasEnded());
    loop.advance(DaemonKeeper::lookInterval);
    EXPECT_TRUE(wasStarted(2));
}

TEST_F(Keeper, LeavesOneAwayThatWasAskedToEnd) {
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    ASSERT_TRUE(hasEnded());
    loop.advance(std::chrono::hours(1));
    EXPECT_EQ(log.count(died) + log.count(failed), 0U);
}

TEST_F(Keeper, TriesOneThatFailedToStartMoreAndMoreRarely) {
    log.expect(failed);
    useTool("exit 1");
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    ASSERT_TRUE(hasEnded());
    loop.advance(DaemonKeeper::lookInterval);
    EXPECT_EQ(log.count(failed), 1U);
    ASSERT_TRUE(wasStarted(2));
    ASSERT_TRUE(hasEnded());
    loop.advance(DaemonKeeper::lookInterval * 2 - std::chrono::milliseconds(1));
    EXPECT_EQ(log.count(failed), 1U);
    loop.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(log.count(failed), 2U);
    EXPECT_TRUE(wasStarted(3));
}

TEST_F(Keeper, LeavesOneAwayThatCameUpAllTheSameAndWasAskedToEnd) {
    useTool("exit 1");
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    ASSERT_TRUE(hasEnded());
    writePid(getpid());
    loop.advance(DaemonKeeper::lookInterval);
    std::filesystem::remove(home / ".claude/tts/daemon.pid");
    loop.advance(std::chrono::hours(1));
    EXPECT_EQ(log.count(died) + log.count(failed), 0U);
}

TEST_F(Keeper, StoppedItEndsAStartThatIsUnderWayAndStartsNothingMore) {
    useTool("sleep 600");
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    keeper.stop();
    EXPECT_TRUE(hasEnded());
    writePid(deadProcess);
    loop.advance(std::chrono::hours(1));
    EXPECT_EQ(log.count(died) + log.count(failed), 0U);
}

TEST_F(Keeper, StoppedItEndsAStartThatDoesNotWantTo) {
    useTool("trap '' TERM; while :; do sleep 0.05; done");
    keeper.start();
    ASSERT_TRUE(wasStarted(1));
    keeper.stop();
    EXPECT_TRUE(hasEnded());
}

TEST_F(Keeper, TriesOneThatCannotLiveMoreAndMoreRarely) {
    log.expect(died);
    keeper.start();
    writePid(deadProcess);
    // After 30 s, and then a minute, two, four, eight, and ten from then on.
    std::size_t starts = 0;
    for (const int pause : {1, 2, 4, 8, 16, 20, 20}) {
        ASSERT_TRUE(wasStarted(++starts));
        ASSERT_TRUE(hasEnded());
        loop.advance(DaemonKeeper::lookInterval * pause - std::chrono::milliseconds(1));
        EXPECT_EQ(log.count(died), starts - 1);
        loop.advance(std::chrono::milliseconds(1));
        EXPECT_EQ(log.count(died), starts);
    }
}

}  // namespace
}  // namespace sonra
