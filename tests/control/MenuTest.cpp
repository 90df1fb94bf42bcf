#include "control/Fixture.h"
#include "frame/Semaphore.h"
#include "support/ComesTrue.h"

namespace sonra {
namespace {

class Menu : public test::CoordinatorTest {
  protected:
    /// What the control tool was last told; empty if it wasn't called.
    [[nodiscard]] std::string told() const { return test::readFile(home / "told"); }

    void SetUp() override {
        test::writeFile(home / "ctl", "echo \"$@\" >'" + (home / "told") + "'\n");
    }

    /// Starts with the control tool at hand, and waits until it was told to start the daemon.
    void startWithDaemon() {
        start();
        ASSERT_TRUE(test::comesTrue([&] { return told() == "standby\n"; }));
    }

    const std::string tool = "/bin/sh " + (home / "ctl");
};

TEST_F(Menu, ServiceStartsTheDaemonBesideIt) {
    const test::ScopedEnv allowed("TTS_DISABLE_CTL", "0");
    const test::ScopedEnv command("TTS_CTL_CMD", tool);
    startWithDaemon();
}

TEST_F(Menu, ShowsWhatPlaysAndSteersIt) {
    start();
    EXPECT_EQ(test::words(statusItem.row("status").title), "Sonra  •  idle");
    playMessage("m1", "some words");
    EXPECT_EQ(test::words(statusItem.row("status").title), "Narrating  •  some words");
    statusItem.row("playPause").onClick();
    EXPECT_TRUE(coordinator->queue().paused());
    EXPECT_EQ(test::words(statusItem.row("playPause").title), "Resume");
    statusItem.row("playPause").onClick();
    EXPECT_FALSE(coordinator->queue().paused());
    statusItem.row("mute").onClick();
    EXPECT_TRUE(coordinator->queue().muted());
    EXPECT_EQ(document()["muted"], true);
    statusItem.row("stop").onClick();
    EXPECT_EQ(coordinator->queue().current(), nullptr);
}

TEST_F(Menu, AttachesAndDetachesByHand) {
    const auto transcript = makeTranscript("s1", "/p");
    writeDocument({{"discoveredSessions", {discovered("s1", transcript), discovered("s2", "/x")}}});
    start();
    EXPECT_FALSE(coordinator->sessions().isNarrating());
    const auto rows = statusItem.open("attach");
    ASSERT_EQ(rows.size(), 2U);
    rows[0].onClick();
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(test::words(statusItem.row("sessions").title), "Narrating: 1");
    statusItem.open("sessions")[0].onClick();
    EXPECT_FALSE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(test::words(statusItem.row("sessions").title), "Narrating: (none)");
}

TEST_F(Menu, SkipGoesOnToTheNext) {
    start();
    playMessage("m1", "one");
    playMessage("m1", "two");
    statusItem.row("skip").onClick();
    loop.runPosted();
    EXPECT_EQ(coordinator->queue().currentChunk()->text, "two");
}

TEST_F(Menu, TheStepsOfVolumeAndSpeedAreWrittenAndTakeEffect) {
    start();
    const auto step = [this](const std::string& menu, const std::string& title) {
        for (const auto& row : statusItem.open(menu))
            if (test::words(row.title) == title) return row.onClick();
        FAIL() << menu << " has no " << title;
    };
    step("volume", "40%");
    EXPECT_EQ(document()["volume"], 40);
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 0.4F);
    EXPECT_EQ(statusItem.row("volume").trailing, "40%");
    step("speed", "2x");
    EXPECT_EQ(document()["speed"], 2.0);
    EXPECT_EQ(*caption().speed, 2.0);
    EXPECT_EQ(statusItem.row("speed").trailing, "2x");
}

TEST_F(Menu, StartAtLoginIsNotOfferedWhereNothingMayBeStarted) {
    const test::ScopedEnv command("TTS_CTL_CMD", tool);
    start();
    EXPECT_FALSE(statusItem.has("login"));
}

TEST_F(Menu, StartAtLoginAsksTheControlTool) {
    const test::ScopedEnv allowed("TTS_DISABLE_CTL", "0");
    const test::ScopedEnv command("TTS_CTL_CMD", tool);
    startWithDaemon();
    EXPECT_EQ(test::words(statusItem.row("login").title), "Start at login");
    statusItem.row("login").onClick();
    EXPECT_TRUE(test::comesTrue([&] { return told() == "install\n"; }));
}

TEST_F(Menu, QuitStopsInGoodOrder) {
    const test::ScopedEnv allowed("TTS_DISABLE_CTL", "0");
    const test::ScopedEnv command("TTS_CTL_CMD", tool);
    useResidentWorker();
    startWithDaemon();
    ASSERT_TRUE(loop.runUntil([&] { return log.count("kokoro worker spawned") == 1; }));
    statusItem.row("quit").onClick();
    // The voice has been told to end, and the daemon; only then does the process go.
    EXPECT_TRUE(exits.empty());
    EXPECT_TRUE(loop.runUntil([&] { return log.count("kokoro worker exited") == 1; }));
    EXPECT_TRUE(test::comesTrue([&] { return told() == "stop-daemon\n"; }));
    loop.runPosted();
    EXPECT_EQ(exits, std::vector<int>{0});
    coordinator = nullptr;
    EXPECT_EQ(exitsAtOnce, 0) << "the watchdog is called off";
}

TEST_F(Menu, QuitEndsWithinASecondEvenIfItsOrderHangs) {
    start();
    // Work that fills the pool is no help to a quit that hangs.
    const auto freed = std::make_shared<Semaphore>();
    for (int thread = 0; thread < 8; ++thread) pool.post([freed] { freed->wait(); });
    const auto wish = std::chrono::steady_clock::now();
    statusItem.row("quit").onClick();
    // The main loop doesn't run any more: what it was to do never happens.
    EXPECT_TRUE(test::comesTrue([&] { return exitsAtOnce == 1; }));
    const auto took = std::chrono::steady_clock::now() - wish;
    EXPECT_GE(took, std::chrono::milliseconds(900)) << "an orderly end has its time";
    EXPECT_LT(took, std::chrono::seconds(3));
    EXPECT_TRUE(exits.empty());
    for (int thread = 0; thread < 8; ++thread) freed->signal();
}

}  // namespace
}  // namespace sonra
