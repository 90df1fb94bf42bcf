#include "ingest/UnchangedDocuments.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ingest/ClineReader.h"
#include "ingest/DocumentReading.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

class UnchangedDocumentsTest : public testing::Test {
  protected:
    UnchangedDocumentsTest() { test::writeFile(path, "[]"); }

    UnchangedDocuments::Version version() const {
        return UnchangedDocuments::versionOf(path).value();
    }

    test::TempDir dir;
    const std::string path = dir / "document.json";
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now() + 1h;
    UnchangedDocuments documents{[this] { return now; }};
};

TEST_F(UnchangedDocumentsTest, RemembersAVersionThatWasLeftAlone) {
    EXPECT_FALSE(documents.count(path, version()));
    documents.remember(path, version(), 3);
    EXPECT_EQ(documents.count(path, version()), 3);
    EXPECT_FALSE(documents.count(dir / "other.json", version()));
}

TEST_F(UnchangedDocumentsTest, VersionThatMayStillBeWrittenToIsNotRemembered) {
    now = std::chrono::system_clock::now();
    documents.remember(path, version(), 3);
    EXPECT_FALSE(documents.count(path, version()));
}

TEST_F(UnchangedDocumentsTest, AnotherVersionIsUnknown) {
    documents.remember(path, version(), 3);
    test::writeFile(path, "{}");
    EXPECT_FALSE(documents.count(path, version()));
    documents.remember(path, version(), 4);
    test::writeFile(dir / "fresh", "[]");
    std::filesystem::rename(dir / "fresh", path);
    EXPECT_FALSE(documents.count(path, version()));
}

TEST_F(UnchangedDocumentsTest, NothingAtThePathHasNoVersion) {
    EXPECT_FALSE(UnchangedDocuments::versionOf(dir / "missing"));
}

TEST_F(UnchangedDocumentsTest, CompanionIsPartOfTheVersion) {
    const auto companion = dir / "companion";
    const auto both = [&] { return UnchangedDocuments::versionOf(path, companion).value(); };
    documents.remember(path, both(), 3);
    EXPECT_EQ(documents.count(path, both()), 3) << "none is a state, too";
    test::writeFile(companion, "1");
    EXPECT_FALSE(documents.count(path, both()));
    documents.remember(path, both(), 4);
    EXPECT_EQ(documents.count(path, both()), 4);
    test::appendFile(companion, "2");
    EXPECT_FALSE(documents.count(path, both()));
    EXPECT_FALSE(UnchangedDocuments::versionOf(dir / "missing", companion));
}

/// As when there are too many open files for a while.
TEST_F(UnchangedDocumentsTest, DocumentThatCouldNotBeReadIsNotRemembered) {
    static bool isReadable = false;
    const auto load = [](const std::string&) {
        return isReadable ? std::optional(Json::parse("[{},{}]")) : std::nullopt;
    };
    const std::string leftAlone = "/proc/self/exe";
    const auto start = TailOffset::messageIndex(0);
    EXPECT_TRUE(DocumentReading::since(leftAlone, start, load).records.empty());
    isReadable = true;
    EXPECT_EQ(DocumentReading::since(leftAlone, start, load).records.size(), 2U);
}

/// Also for a listener who starts again from the front.
TEST_F(UnchangedDocumentsTest, ReaderGivesWhatLiesBehindItsCursorHoweverOftenItLooked) {
    test::writeFile(path, R"([{"role":"user"},{"role":"assistant","content":"one"}])");
    const ClineReader reader;
    const auto all = TailOffset::messageIndex(2);
    for (int look = 0; look < 3; ++look) {
        EXPECT_TRUE(reader.readSince(path, all).records.empty());
        EXPECT_EQ(reader.readSince(path, TailOffset::messageIndex(1)).records.size(), 1U);
    }
    test::writeFile(path, R"([{"role":"user"},{"role":"assistant"},{"role":"user"}])");
    EXPECT_EQ(reader.readSince(path, all).newOffset, TailOffset::messageIndex(3));
}

}  // namespace
}  // namespace sonra
