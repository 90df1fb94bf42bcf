#include "frame/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

/// The id of no process, beyond all that the kernel gives.
constexpr pid_t deadProcess = std::numeric_limits<pid_t>::max();

std::string nameFor(pid_t pid) {
    return "sonra-" + std::to_string(getuid()) + "-" + std::to_string(pid) + "-abcdef";
}

class TemporaryDirectory : public testing::Test {
  protected:
    test::TempDir root;
    test::ScopedEnv tmp{"TMPDIR", root.path()};

    void SetUp() override { removeTemporaryDirectory(); }
    void TearDown() override { removeTemporaryDirectory(); }
};

TEST_F(TemporaryDirectory, IsPrivateAndMadeOnce) {
    const auto path = temporaryDirectory();
    EXPECT_EQ(path.rfind(root.path() + "/sonra-", 0), 0U);
    EXPECT_EQ(temporaryDirectory(), path);
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(TemporaryDirectory, IsMadeAgainWhenItWasTakenAway) {
    const auto first = temporaryDirectory();
    fs::remove_all(first);
    const auto second = temporaryDirectory();
    EXPECT_NE(second, first);
    EXPECT_TRUE(fs::is_directory(second));
}

TEST_F(TemporaryDirectory, RemovalTakesItsFilesAlong) {
    const auto path = temporaryDirectory();
    test::writeFile(path + "/a.wav", "x");
    removeTemporaryDirectory();
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(TemporaryDirectory, SweepRemovesThoseOfDeadProcessesOnly) {
    const auto dead = root / nameFor(deadProcess);
    const auto living = root / nameFor(getppid());
    const auto foreign = root / ("sonra-" + std::to_string(getuid()) + "-notanumber-x");
    const auto other = root / "unrelated";
    for (const auto& path : {dead, living, foreign, other}) fs::create_directory(path);
    test::writeFile(dead + "/left.wav", "x");
    sweepTemporaryDirectories();
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_TRUE(fs::exists(living) && fs::exists(foreign) && fs::exists(other));
}

TEST_F(TemporaryDirectory, SweepDoesNotFollowLinks) {
    const auto target = root / "target";
    fs::create_directory(target);
    test::writeFile(target + "/kept", "x");
    fs::create_directory_symlink(target, root / nameFor(deadProcess));
    sweepTemporaryDirectories();
    EXPECT_TRUE(fs::exists(target + "/kept"));
}

TEST_F(TemporaryDirectory, WithoutAPlaceItIsEmpty) {
    const test::ScopedEnv nowhere("TMPDIR", root / "missing");
    EXPECT_EQ(temporaryDirectory(), "");
}

}  // namespace
}  // namespace sonra
