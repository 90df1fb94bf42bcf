#include <algorithm>
#include <filesystem>

#include "control/Fixture.h"

namespace sonra {
namespace {

class Search : public test::CoordinatorTest {
  protected:
    /// A transcript of Claude Code's with one prompt and one answer.
    std::string makeSession(const std::string& id, const std::string& cwd,
                            const std::string& prompt) const {
        auto path = makeTranscript(id, cwd);
        write(path, cwd, prompt);
        return path;
    }
    static void write(const std::string& path, const std::string& cwd, const std::string& prompt) {
        test::writeFile(
            path, json::dump({{"type", "user"}, {"cwd", cwd}, {"message", {{"content", prompt}}}}) +
                      "\n");
    }
    /// Until the catalogue has been brought up to date and is watched.
    void startAndCatalogue() {
        start();
        ASSERT_TRUE(loop.runUntil([this] { return tree.running() == 1; }));
    }
    std::vector<std::string> recent() { return test::FakeStatusItem::titlesOf(attachRows()); }
    std::vector<MenuRow> attachRows() { return statusItem.open("attach"); }
    bool wasAsked(const std::string& what, const std::string& id) {
        const auto calls = desktopSearch.calls();
        return std::ranges::any_of(calls, [&](const std::string& call) {
            return call.starts_with(what + " ") &&
                   call.find("tts://session/" + id) != std::string::npos;
        });
    }
    bool untilFound(std::size_t count) {
        return loop.runUntil([&] { return searchPanel->rows.size() == count; });
    }
};

TEST_F(Search, CommandOpensThePanel) {
    start();
    EXPECT_FALSE(searchPanel->isVisible());
    coordinator->handleIPC({{"cmd", "search"}});
    EXPECT_TRUE(searchPanel->isVisible());
}

TEST_F(Search, PanelOpensWithAQueryFromElsewhere) {
    start();
    coordinator->openSearchPanel("kettle");
    EXPECT_TRUE(searchPanel->isVisible());
    EXPECT_EQ(searchPanel->query(), "kettle");
    coordinator->openSearchPanel();
    EXPECT_EQ(searchPanel->query(), "kettle");
}

TEST_F(Search, MenuRowOpensThePanel) {
    start();
    EXPECT_EQ(test::words(statusItem.row("search").title), "Search sessions…");
    statusItem.row("search").onClick();
    EXPECT_TRUE(searchPanel->isVisible());
}

TEST_F(Search, ChordOpensAndClosesThePanel) {
    start();
    ASSERT_EQ(hotkeys.registered.size(), 1U);
    const auto& [id, registered] = *hotkeys.registered.begin();
    EXPECT_EQ(registered.chord.keyName, "f");
    EXPECT_TRUE(registered.chord.command && registered.chord.shift);
    EXPECT_EQ(registered.title, "Search sessions");
    hotkeys.press(id);
    loop.runPosted();
    EXPECT_TRUE(searchPanel->isVisible());
    hotkeys.press(id);
    loop.runPosted();
    EXPECT_FALSE(searchPanel->isVisible());
}

TEST_F(Search, NothingIsOfferedWhereNothingCanBeShown) {
    showsPanels = false;
    start();
    EXPECT_FALSE(statusItem.has("search"));
    coordinator->handleIPC({{"cmd", "search"}});
    EXPECT_TRUE(hotkeys.registered.empty());
}

TEST_F(Search, ThePanelMarksAttachedSessionsWithoutAskingTheDisk) {
    makeSession("s1", "/p", "mend the kettle");
    startAndCatalogue();
    coordinator->attachSession("s1", "/p");
    std::filesystem::remove(ServiceState::path());
    coordinator->openSearchPanel();
    ASSERT_TRUE(untilFound(1));
    EXPECT_TRUE(searchPanel->texts().at(0).starts_with("●"));
    coordinator->detachSessionLocal("s1");
    coordinator->openSearchPanel();
    EXPECT_TRUE(loop.runUntil([&] { return !searchPanel->texts().at(0).starts_with("●"); }));
}

TEST_F(Search, FoundSessionIsAttached) {
    makeSession("s1", "/p", "mend the kettle");
    makeSession("s2", "/q", "paint the shed");
    startAndCatalogue();
    coordinator->openSearchPanel();
    searchPanel->type("kettle");
    loop.advance(std::chrono::milliseconds(80));
    ASSERT_TRUE(untilFound(1));
    searchPanel->press(SearchPanel::Command::activate);
    EXPECT_FALSE(searchPanel->isVisible());
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(rows()[0]["cwd"], "/p");
}

/// The folder on disk needn't be named after the folder that the agent worked in.
TEST_F(Search, SessionIsAttachedWhereTheCatalogueFoundIt) {
    const auto elsewhere = home / ".claude/projects/-moved";
    std::filesystem::create_directories(elsewhere);
    write(elsewhere + "/s1.jsonl", "/p", "mend the kettle");
    startAndCatalogue();
    coordinator->attachSession("s1", "/p");
    EXPECT_TRUE(coordinator->sessions().isNarrating("s1"));
    EXPECT_EQ(rows()[0]["transcript"], SessionIndex::canonicalize(elsewhere + "/s1.jsonl"));
}

TEST_F(Search, TheDerivedPlaceGoesBeforeTheCatalogues) {
    const auto transcript = makeSession("s1", "/p", "mend the kettle");
    startAndCatalogue();
    coordinator->attachSession("s1", "/p");
    EXPECT_EQ(rows()[0]["transcript"], transcript);
}

TEST_F(Search, AddressAttachesItsSession) {
    makeSession("s1", "/p", "mend the kettle");
    startAndCatalogue();
    EXPECT_TRUE(coordinator->openURL("tts://session/s1"));
    EXPECT_TRUE(loop.runUntil([this] { return coordinator->sessions().isNarrating("s1"); }));
    EXPECT_FALSE(coordinator->openURL("https://session/s1"));
}

TEST_F(Search, OpenCommandAttachesTheSessionsOfItsAddresses) {
    makeSession("s1", "/p", "mend the kettle");
    makeSession("s2", "/q", "paint the shed");
    startAndCatalogue();
    coordinator->handleIPC({{"cmd", "open"}, {"urls", "tts://session/s1"}});
    coordinator->handleIPC({{"cmd", "open"}});
    coordinator->handleIPC(
        {{"cmd", "open"}, {"urls", {"tts://other", 7, "tts://session/s1", "tts://session/s2"}}});
    EXPECT_TRUE(loop.runUntil([this] {
        return coordinator->sessions().isNarrating("s1") &&
               coordinator->sessions().isNarrating("s2");
    }));
    EXPECT_EQ(rows().size(), 2U);
}

TEST_F(Search, AttachedSessionsComeFirstWhileNothingIsTyped) {
    makeSession("s1", "/p", "mend the kettle");
    const auto later = makeSession("s2", "/q", "paint the shed");
    std::filesystem::last_write_time(
        later, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    startAndCatalogue();
    coordinator->attachSession("s1", "/p");
    coordinator->openSearchPanel();
    ASSERT_TRUE(untilFound(2));
    EXPECT_TRUE(searchPanel->texts()[0].starts_with("● s1 · p"));
    EXPECT_TRUE(searchPanel->texts()[1].starts_with("s2 · q"));
}

TEST_F(Search, OpenPanelShowsWhatTheFirstReadingOfTheTreeFinds) {
    makeSession("s1", "/p", "mend the kettle");
    start();
    coordinator->openSearchPanel();
    ASSERT_TRUE(untilFound(1));
    EXPECT_TRUE(searchPanel->texts()[0].starts_with("s1 · p"));
    EXPECT_EQ(searchPanel->selected, 0U);
}

TEST_F(Search, AddressThatComesBeforeTheFirstReadingWaitsForIt) {
    makeSession("s1", "/p", "mend the kettle");
    start();
    EXPECT_TRUE(coordinator->openURL("tts://session/s1"));
    EXPECT_TRUE(loop.runUntil([this] { return coordinator->sessions().isNarrating("s1"); }));
}

TEST_F(Search, NewestOfTheCatalogueCanBeAttachedFromTheMenu) {
    for (int i = 0; i < 10; ++i)
        makeSession("s" + std::to_string(i), "/p" + std::to_string(i),
                    "do thing " + std::to_string(i));
    startAndCatalogue();
    ASSERT_TRUE(loop.runUntil([this] { return attachRows().size() == 8; }));
    EXPECT_EQ(test::words(statusItem.row("attach").title), "Attach session…");
    attachRows()[0].onClick();
    EXPECT_TRUE(coordinator->sessions().isNarrating());
    EXPECT_FALSE(rows()[0]["title"].get<std::string>().empty());
}

TEST_F(Search, SubAgentsAreOfferedNowhere) {
    for (int i = 0; i < 9; ++i)
        makeSession("agent-" + std::to_string(i), "/p", "look at the kettle");
    const auto own = makeSession("s1", "/p", "mend the kettle");
    std::filesystem::last_write_time(
        own, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    startAndCatalogue();
    ASSERT_TRUE(loop.runUntil(
        [this] { return attachRows().size() == 1 && recent()[0] != "No sessions detected"; }));
    EXPECT_NE(recent()[0].find("mend"), std::string::npos) << recent()[0];
    coordinator->openSearchPanel();
    ASSERT_TRUE(untilFound(1));
    EXPECT_TRUE(searchPanel->texts()[0].starts_with("s1 · p"));
    ASSERT_TRUE(loop.runUntil([this] { return wasAsked("index", "s1"); }));
    EXPECT_FALSE(wasAsked("index", "agent-"));
}

TEST_F(Search, CachedCatalogueIsThereBeforeTheTreeWasRead) {
    makeSession("s1", "/p", "mend the kettle");
    startAndCatalogue();
    ASSERT_TRUE(loop.runUntil(
        [this] { return attachRows().size() == 1 && recent()[0] != "No sessions detected"; }));
    coordinator.reset();
    pool.drain();
    start();
    EXPECT_NE(recent(), std::vector<std::string>{"No sessions detected"});
}

TEST_F(Search, DesktopsSearchIsFilledAndFollows) {
    const auto transcript = makeSession("s1", "/p", "mend the kettle");
    startAndCatalogue();
    ASSERT_TRUE(loop.runUntil([this] { return wasAsked("index", "s1"); }));
    std::filesystem::remove(transcript);
    const auto added = makeSession("s2", "/p", "paint the shed");
    tree.fire({{SessionIndex::canonicalize(transcript), SessionIndex::canonicalize(added)}});
    ASSERT_TRUE(loop.runUntil([this] {
        loop.advance(std::chrono::milliseconds(500));
        return wasAsked("index", "s2") && wasAsked("delete", "s1");
    }));
}

}  // namespace
}  // namespace sonra
