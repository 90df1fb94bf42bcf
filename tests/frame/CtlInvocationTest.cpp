#include "frame/CtlInvocation.h"

#include "support/LogWatch.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace sonra {
namespace {

namespace fs = std::filesystem;
using CtlInvocation::Resolved;
using test::LogWatch;
using test::ScopedEnv;
using test::TempDir;
using test::TempHome;
using test::writeFile;

constexpr auto unreadable = "ctl-path.txt unreadable; falling back to candidate probe";
constexpr auto stale = "ctl-path.txt is stale; falling back to candidate probe";

std::string makeFile(const std::string& path, std::string_view content = "x") {
    fs::create_directories(fs::path(path).parent_path());
    writeFile(path, content);
    return path;
}

std::string makeProgram(const std::string& path) {
    makeFile(path);
    fs::permissions(path, fs::perms::owner_all);
    return path;
}

std::string pointerOf(const std::string& home) {
    return home + "/Library/Application Support/Sonra/ctl-path.txt";
}

std::optional<Resolved> resolveWith(const Environment& environment,
                                    const std::optional<std::string>& node,
                                    const std::optional<std::string>& script) {
    return CtlInvocation::resolve(
        "/home/u", environment, [=] { return node; }, [=](const std::string&) { return script; });
}

TEST(CtlInvocation, TheEnvironmentWinsWhateverExistsOnDisk) {
    const auto named = resolveWith({{"TTS_CTL_CMD", "/usr/bin/node /opt/sonra/ctl.js"}},
                                   "/probed/node", "/probed/ctl.js");
    EXPECT_EQ((Resolved{"/usr/bin/node", "/opt/sonra/ctl.js"}), named);
}

TEST(CtlInvocation, SplitsTheEnvironmentAtItsFirstBlankOnly) {
    EXPECT_EQ((Resolved{"node", "/opt/my tools/ctl.js"}),
              resolveWith({{"TTS_CTL_CMD", "node /opt/my tools/ctl.js"}}, "n", "s"));
    EXPECT_EQ((Resolved{"node", "ctl.js"}),
              resolveWith({{"TTS_CTL_CMD", "  node ctl.js"}}, "n", "s"));
}

TEST(CtlInvocation, AnEnvironmentWithoutAScriptIsIgnored) {
    for (const auto* value : {"just-node-no-script", "", " ", "node ", " node "})
        EXPECT_EQ((Resolved{"n", "s"}), resolveWith({{"TTS_CTL_CMD", value}}, "n", "s")) << value;
    EXPECT_EQ((Resolved{"n", "s"}), resolveWith({}, "n", "s"));
}

TEST(CtlInvocation, AScriptWithoutANodeOrANodeWithoutAScriptGivesNothing) {
    EXPECT_EQ(std::nullopt, resolveWith({}, std::nullopt, "s"));
    EXPECT_EQ(std::nullopt, resolveWith({}, "n", std::nullopt));
    EXPECT_EQ(std::nullopt, resolveWith({{"TTS_CTL_CMD", "just-node-no-script"}}, "n", {}));
}

TEST(CtlInvocation, AsksForTheScriptInTheHomeThatItWasGiven) {
    std::string asked;
    CtlInvocation::resolve(
        "/home/u", {}, [] { return "n"; },
        [&](const std::string& home) {
            asked = home;
            return "s";
        });
    EXPECT_EQ("/home/u", asked);
}

TEST(CtlInvocation, ResolvesFromThisProcessesEnvironment) {
    const ScopedEnv override("TTS_CTL_CMD", "/n/node /s/ctl.js");
    EXPECT_EQ((Resolved{"/n/node", "/s/ctl.js"}), CtlInvocation::resolve());
}

TEST(CtlInvocation, QuotesWhatTheShellWouldReadOtherwise) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/usr/bin/node", "/usr/bin/node"},
        {"aZ09/._+-:@%=,", "aZ09/._+-:@%=,"},
        {"", "''"},
        {"a b", "'a b'"},
        {"it's", "'it'\\''s'"},
        {"$HOME", "'$HOME'"},
        {"a;b", "'a;b'"},
        {"~/x", "'~/x'"},
        {"\xC3\xA4", "'\xC3\xA4'"},
        {"a\nb", "'a\nb'"},
        {"a\\b", "'a\\b'"},
        {"*", "'*'"}};
    for (const auto& [word, quoted] : cases)
        EXPECT_EQ(quoted, Resolved::quoteForShell(word)) << word;
}

TEST(CtlInvocation, TheShellCommandQuotesAScriptPathWithABlank) {
    const Resolved resolved{"/usr/local/bin/node", "/opt/my tools/ctl.js"};
    EXPECT_EQ("/usr/local/bin/node '/opt/my tools/ctl.js'", resolved.shellCommand());
}

TEST(CtlInvocation, TheShellReadsBackWhatWasQuoted) {
    const TempDir directory;
    for (const auto* word :
         {"", "plain", "it's a 'word'", "$(exit 3) `x` \\ \"q\"", "a\n\tb*?[x]"}) {
        const std::string out = directory / "out";
        const std::string command = "printf %s " + Resolved::quoteForShell(word) + " > " + out;
        ASSERT_EQ(0, std::system(command.c_str()));
        EXPECT_EQ(word, test::readFile(out));
    }
}

TEST(CtlInvocation, ThePointerFileDecidesWhereItNamesAFile) {
    const TempDir home;
    const std::string named = makeFile(home / "elsewhere/my ctl.js");
    makeFile(home / ".claude/tts/ctl.js");
    makeFile(pointerOf(home.path()), " \t" + named + "\r\n");
    EXPECT_EQ(named, CtlInvocation::resolveCtlPath(home.path(), ""));
}

TEST(CtlInvocation, AStalePointerFileIsLoggedAndTheCandidatesDecide) {
    const TempDir home;
    const std::string script = makeFile(home / ".claude/tts/ctl.js");
    makeFile(pointerOf(home.path()), "/nowhere/ctl.js\n");
    LogWatch log;
    log.expect(stale);
    EXPECT_EQ(script, CtlInvocation::resolveCtlPath(home.path(), ""));
    const auto records = log.records(stale);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("resolveCtlPath", records[0]["method"]);
    EXPECT_EQ((Json{{"pointer", pointerOf(home.path())}, {"resolvedTo", "/nowhere/ctl.js"}}),
              records[0]["input"]);
}

TEST(CtlInvocation, AnEmptyPointerFileIsStale) {
    const TempDir home;
    makeFile(pointerOf(home.path()), " \n");
    LogWatch log;
    log.expect(stale);
    EXPECT_EQ(std::nullopt, CtlInvocation::resolveCtlPath(home.path(), ""));
}

TEST(CtlInvocation, AnUnreadablePointerFileIsLoggedAndTheCandidatesDecide) {
    const TempDir home;
    const std::string script = makeFile(home / ".claude/tts/ctl.js");
    makeFile(pointerOf(home.path()), "/bad\xFF");
    LogWatch log;
    log.expect(unreadable);
    EXPECT_EQ(script, CtlInvocation::resolveCtlPath(home.path(), ""));
    fs::remove(pointerOf(home.path()));
    fs::create_directories(pointerOf(home.path()));
    EXPECT_EQ(script, CtlInvocation::resolveCtlPath(home.path(), ""));
    const auto records = log.records(unreadable);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ((Json{{"pointer", pointerOf(home.path())}, {"error", "not UTF-8"}}),
              records[0]["input"]);
    EXPECT_EQ("not a regular file", records[1]["input"]["error"]);
}

TEST(CtlInvocation, TheFirstCandidateThatExistsWins) {
    const TempDir root;
    const std::string home = root / "home";
    const std::string bundle = root / "repo/out/Bundle";
    EXPECT_EQ(std::nullopt, CtlInvocation::resolveCtlPath(home, bundle));
    // From the last to the first, each one wins over those before.
    for (const auto* place :
         {"repo/out/Bundle/share/sonra/cli/ctl.js", "repo/out/Bundle/Contents/Resources/cli/ctl.js",
          "home/.claude/tts/ctl.js", "home/.claude/plugins/repo/ctl.js", "repo/ctl.js"}) {
        makeFile(root / place);
        EXPECT_EQ(root / place, CtlInvocation::resolveCtlPath(home, bundle));
    }
    EXPECT_EQ(home + "/.claude/plugins/repo/ctl.js", CtlInvocation::resolveCtlPath(home, ""));
}

TEST(CtlInvocation, NodeIsTheFirstUsualPathThatCanBeExecuted) {
    const TempHome home;
    const std::string plain = makeFile(home / "a/node");
    fs::permissions(plain, fs::perms::owner_read);
    const std::string node = makeProgram(home / "b/node");
    makeProgram(home / "c/node");
    EXPECT_EQ(node,
              CtlInvocation::resolveNodeBinary({home / "none", plain, node, home / "c/node"}));
}

TEST(CtlInvocation, NodeIsNvmsDefaultBeforeThePath) {
    const TempHome home;
    const std::string onPath = makeProgram(home / "bin/node");
    const ScopedEnv path("PATH", "relative::" + (home / "empty") + ":" + (home / "bin"));
    EXPECT_EQ(onPath, CtlInvocation::resolveNodeBinary({}));
    makeFile(home / ".nvm/alias/default", "v20.11.0\n");
    const std::string nvm = makeProgram(home / ".nvm/versions/node/v20.11.0/bin/node");
    EXPECT_EQ(nvm, CtlInvocation::resolveNodeBinary({}));
}

TEST(CtlInvocation, NodeIsAbsentWhereThereIsNone) {
    const TempHome home;
    const ScopedEnv path("PATH", home.path());
    EXPECT_EQ(std::nullopt, CtlInvocation::resolveNodeBinary({home / "none"}));
    const ScopedEnv noPath("PATH", "");
    EXPECT_EQ(std::nullopt, CtlInvocation::resolveNodeBinary({}));
}

TEST(CtlInvocation, TheUsualNodePaths) {
    EXPECT_EQ((std::vector<std::string>{"/opt/homebrew/bin/node", "/usr/local/bin/node",
                                        "/usr/bin/node"}),
              CtlInvocation::usualNodePaths);
}

TEST(CtlInvocation, NvmDefaultFollowsTheLtsAliasAndAddsItsV) {
    const TempDir home;
    const std::string iron = makeProgram(home / ".nvm/versions/node/v20.11.0/bin/node");
    makeFile(home / ".nvm/alias/lts/iron", "v20.11.0\n");
    for (const auto* alias : {"lts/iron\n", "20.11.0", "v20.11.0", " v20.11.0 \n"}) {
        makeFile(home / ".nvm/alias/default", alias);
        EXPECT_EQ(iron, CtlInvocation::nvmDefaultNodeBinary(home.path())) << alias;
    }
}

TEST(CtlInvocation, NvmDefaultIsAbsentWhereItLeadsNowhere) {
    const TempDir home;
    EXPECT_EQ(std::nullopt, CtlInvocation::nvmDefaultNodeBinary(home.path()));
    for (const auto* alias : {"", " \n", "lts/none", "v1.2.3", "node"}) {
        makeFile(home / ".nvm/alias/default", alias);
        EXPECT_EQ(std::nullopt, CtlInvocation::nvmDefaultNodeBinary(home.path())) << alias;
    }
    makeFile(home / ".nvm/versions/node/v1.2.3/bin/node");
    makeFile(home / ".nvm/alias/default", "v1.2.3");
    EXPECT_EQ(std::nullopt, CtlInvocation::nvmDefaultNodeBinary(home.path()));
}

TEST(CtlInvocation, SpawningIsDisabledByExactlyOne) {
    const std::vector<std::pair<std::string, bool>> cases{
        {"1", true}, {"", false}, {"0", false}, {"true", false}, {"11", false}};
    for (const auto& [value, disabled] : cases) {
        const ScopedEnv variable("TTS_DISABLE_CTL", value);
        EXPECT_EQ(disabled, CtlInvocation::ctlSpawnDisabled()) << value;
    }
}

}  // namespace
}  // namespace sonra
