#include "ingest/UnchangedDocuments.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ingest/ClineReader.h"
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
