#include "frame/ScriptResolver.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::TempHome;
using test::writeFile;

std::string makeScript(const std::string& path, fs::perms mode = fs::perms::owner_read) {
    fs::create_directories(fs::path(path).parent_path());
    writeFile(path, "x");
    fs::permissions(path, mode);
    return path;
}

/// An installation in a directory of its own, with nothing in it yet.
struct Installation {
    TempDir directory;
    std::string home = directory / "home";
    Bundle bundle{directory / "prefix", directory / "prefix/share/sonra",
                  directory / "a/b/c/sonra"};
    std::string inBundle = directory / "prefix/share/sonra/scripts/tts.js";
    std::string inHome = directory / "home/.claude/tts/tts.js";
    std::string inRepository = directory / "tts.js";
};

TEST(ScriptResolver, TriesTheBundleThenTheHomeThenTheRepository) {
    const Installation at;
    makeScript(at.inRepository);
    EXPECT_EQ(at.inRepository, ScriptResolver::resolve("tts.js", at.bundle, at.home));
    makeScript(at.inHome);
    EXPECT_EQ(at.inHome, ScriptResolver::resolve("tts.js", at.bundle, at.home));
    makeScript(at.inBundle);
    EXPECT_EQ(at.inBundle, ScriptResolver::resolve("tts.js", at.bundle, at.home));
}

TEST(ScriptResolver, SaysEveryPathThatItTried) {
    const Installation at;
    try {
        ScriptResolver::resolve("tts.js", at.bundle, at.home);
        FAIL() << "found a script that isn't there";
    } catch (const ScriptResolverError& error) {
        EXPECT_EQ("tts.js", error.name());
        EXPECT_EQ((std::vector{at.inBundle, at.inHome, at.inRepository}), error.attempted());
        EXPECT_EQ("Couldn't find tts.js. Looked in:\n  " + at.inBundle + "\n  " + at.inHome +
                      "\n  " + at.inRepository,
                  std::string(error.what()));
    }
}

TEST(ScriptResolver, WithoutABundleOnlyTheHomeIsTried) {
    const Installation at;
    makeScript(at.inBundle);
    try {
        ScriptResolver::resolve("tts.js", Bundle{}, at.home);
        FAIL() << "looked into a bundle that there isn't";
    } catch (const ScriptResolverError& error) {
        EXPECT_EQ(std::vector{at.inHome}, error.attempted());
    }
}

TEST(ScriptResolver, FindsTheScriptsOfThisUser) {
    const TempHome home;
    const std::string kokoro = makeScript(home.shared() + "/tts_kokoro.py");
    const std::string ttsJs = makeScript(home.shared() + "/tts.js");
    EXPECT_TRUE(fs::exists(ScriptResolver::kokoroScript()));
    EXPECT_TRUE(ScriptResolver::kokoroScript().ends_with("/tts_kokoro.py"));
    EXPECT_TRUE(fs::exists(ScriptResolver::ttsJsScript()));
    EXPECT_TRUE(ScriptResolver::ttsJsScript().ends_with("/tts.js"));
}

TEST(ScriptResolver, BundledUvMustBeExecutable) {
    const Installation at;
    EXPECT_EQ(std::nullopt, ScriptResolver::bundledUv(at.bundle));
    const std::string uv = makeScript(at.bundle.resourceDirectory + "/bin/uv");
    EXPECT_EQ(std::nullopt, ScriptResolver::bundledUv(at.bundle));
    fs::permissions(uv, fs::perms::owner_all);
    EXPECT_EQ(uv, ScriptResolver::bundledUv(at.bundle));
    EXPECT_EQ(std::nullopt, ScriptResolver::bundledUv(Bundle{}));
}

TEST(ScriptResolver, ADirectoryIsNoBundledUv) {
    const Installation at;
    fs::create_directories(at.bundle.resourceDirectory + "/bin/uv");
    EXPECT_EQ(std::nullopt, ScriptResolver::bundledUv(at.bundle));
}

TEST(ScriptResolver, TheMainBundleIsThePrefixOfTheRunningProgram) {
    const Bundle bundle = Bundle::main();
    const fs::path executable = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(executable, bundle.executable);
    EXPECT_EQ(executable.parent_path().parent_path(), bundle.path);
    EXPECT_EQ(bundle.path + "/share/sonra", bundle.resourceDirectory);
}

}  // namespace
}  // namespace sonra
