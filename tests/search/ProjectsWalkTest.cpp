#include "search/ProjectsWalk.h"

#include <gtest/gtest.h>
#include <sys/fsuid.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

/// Makes this thread somebody whom mode bits stop, which root isn't.
class AsNobody {
  public:
    AsNobody() : before_(static_cast<uid_t>(::setfsuid(nobody))) {}
    ~AsNobody() { ::setfsuid(before_); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

  private:
    static constexpr uid_t nobody = 65534;
    const uid_t before_;
};

class ProjectsWalkTest : public testing::Test {
  protected:
    ProjectsWalkTest() {
        fs::permissions(dir.path(), readable);
        for (const auto* name : {"open", "closed", "unsearchable"}) {
            fs::create_directory(dir / name);
            test::writeFile(dir / name + "/a.jsonl", "{}\n");
            fs::permissions(dir / name, readable);
        }
    }
    ~ProjectsWalkTest() override {
        fs::permissions(dir.path(), readable);
        for (const auto& entry : fs::directory_iterator(dir.path()))
            fs::permissions(entry.path(), readable);
    }
    static std::size_t sessionsFor(const std::string& root) {
        const AsNobody nobody;
        return statWalk(root).size();
    }

    static constexpr auto readable = fs::perms{0755};
    test::TempDir dir;
};

TEST_F(ProjectsWalkTest, ADirectoryThatMayNotBeReadCostsNobodyElse) {
    ASSERT_EQ(sessionsFor(dir.path()), 3U);
    fs::permissions(dir / "closed", fs::perms::none);
    fs::permissions(dir / "unsearchable", fs::perms{0444});
    const AsNobody nobody;
    ASSERT_FALSE(std::ifstream(dir / "closed/a.jsonl"));
    const auto found = statWalk(dir.path());
    EXPECT_EQ(found.size(), 1U);
    EXPECT_TRUE(found.contains(dir / "open/a.jsonl"));
}

TEST_F(ProjectsWalkTest, ARootThatMayNotBeReadHasNoSessions) {
    fs::permissions(dir.path(), fs::perms::none);
    EXPECT_EQ(sessionsFor(dir.path()), 0U);
}

}  // namespace
}  // namespace sonra
