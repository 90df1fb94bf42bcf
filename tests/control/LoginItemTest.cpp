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
        const auto path = home / ".config/autostart/dev.trelnivorn.sonra.desktop";
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        test::writeFile(path, entry);
    }

    test::TempHome home;
};

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

TEST_F(LoginItem, LaunchAgentOfAnotherToolCountsToo) {
    const auto agent = home / "Library/LaunchAgents/dev.trelnivorn.sonra.plist";
    std::filesystem::create_directories(std::filesystem::path(agent).parent_path());
    test::writeFile(agent, "");
    EXPECT_TRUE(isLaunchAgentInstalled());
}

}  // namespace
}  // namespace sonra
