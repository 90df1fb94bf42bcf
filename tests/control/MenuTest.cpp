#include "control/Fixture.h"

namespace sonra {
namespace {

class Menu : public test::CoordinatorTest {};

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

TEST_F(Menu, QuitStopsInGoodOrder) {
    start();
    statusItem.row("quit").onClick();
    loop.runPosted();
    EXPECT_EQ(exits, std::vector<int>{0});
}

TEST_F(Menu, QuitEndsWithinASecondEvenIfItsOrderHangs) {
    start();
    statusItem.row("quit").onClick();
    // The main loop doesn't run any more: what it was to do never happens.
    pool.drain();
    EXPECT_TRUE(exits.empty());
    EXPECT_EQ(exitsAtOnce, 1);
}

}  // namespace
}  // namespace sonra
