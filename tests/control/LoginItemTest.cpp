#include "control/LoginItem.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TempDir.h"

namespace sonra {
namespace {

class LoginItem : public testing::Test {
  protected:
    /// As the desktop, or one who installs, leaves the entry.
    void write(const std::string& entry) {
        makeFolder(".config/autostart");
        test::writeFile(home / entryName, entry);
    }
    void makeFolder(const std::string& name) { std::filesystem::create_directories(home / name); }
    void addLaunchAgent() {
        makeFolder("Library/LaunchAgents");
        test::writeFile(home / "Library/LaunchAgents/dev.trelnivorn.sonra.plist", "");
    }

    static constexpr auto entryName = ".config/autostart/dev.trelnivorn.sonra.desktop";

    test::TempHome home;
};

// The same cases as those of the control tool's own check.

TEST_F(LoginItem, IsOffWithoutAnEntryAndOnWithOne) {
    EXPECT_FALSE(isLaunchAgentInstalled());
    write("[Desktop Entry]\nExec=sonra\nX-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(isLaunchAgentInstalled());
}

TEST_F(LoginItem, IsOffWhereTheDesktopSwitchedItsEntryOff) {
    for (const auto* line : {"Hidden=true", "X-GNOME-Autostart-enabled=false", " Hidden = true "}) {
        write("[Desktop Entry]\nExec=sonra\n" + std::string(line));
        EXPECT_FALSE(isLaunchAgentInstalled()) << line;
    }
    write("[Desktop Entry]\n# Hidden=true\nHidden=false\n");
    EXPECT_TRUE(isLaunchAgentInstalled());
}

TEST_F(LoginItem, LaunchAgentOfAnotherToolCountsWhereThereIsNoEntry) {
    addLaunchAgent();
    EXPECT_TRUE(isLaunchAgentInstalled());
    write("[Desktop Entry]\nExec=sonra\nHidden=true");
    EXPECT_FALSE(isLaunchAgentInstalled());
    write("");
    EXPECT_TRUE(isLaunchAgentInstalled());
}

TEST_F(LoginItem, AnEntryThatCannotBeReadIsNone) {
    makeFolder(entryName);
    EXPECT_FALSE(isLaunchAgentInstalled());
    addLaunchAgent();
    EXPECT_TRUE(isLaunchAgentInstalled());
}

TEST_F(LoginItem, AFileInThePlaceOfTheConfigurationIsNoEntry) {
    test::writeFile(home / ".config", "");
    EXPECT_FALSE(isLaunchAgentInstalled());
    addLaunchAgent();
    EXPECT_TRUE(isLaunchAgentInstalled());
}

}  // namespace
}  // namespace sonra
