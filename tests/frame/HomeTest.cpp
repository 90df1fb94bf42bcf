#include "frame/Home.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace sonra {
namespace {

using test::ScopedEnv;

std::string accountsHome() {
    return getpwuid(getuid())->pw_dir;
}

TEST(Home, IsWhatTheEnvironmentSays) {
    const ScopedEnv home("HOME", "/somewhere/else");
    EXPECT_EQ(homeDirectory(), "/somewhere/else");
    EXPECT_EQ(sharedDirectory(), "/somewhere/else/.claude/tts");
}

TEST(Home, IsTheAccountsWhereTheEnvironmentNamesNone) {
    const ScopedEnv putsItBack("HOME", "");
    EXPECT_EQ(homeDirectory(), accountsHome());
    unsetenv("HOME");
    EXPECT_EQ(homeDirectory(), accountsHome());
    EXPECT_EQ(sharedDirectory(), accountsHome() + "/.claude/tts");
}

TEST(Home, AnUnsetVariableIsEmpty) {
    EXPECT_EQ(environmentValue("SONRA_TEST_NOBODY_SETS_THIS"), "");
    const ScopedEnv set("SONRA_TEST_NOBODY_SETS_THIS", "now");
    EXPECT_EQ(environmentValue("SONRA_TEST_NOBODY_SETS_THIS"), "now");
}

}  // namespace
}  // namespace sonra
