#include "ingest/UnchangedDocuments.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>

#include "ingest/ClineReader.h"
#include "ingest/DocumentReading.h"
#include "ingest/FileTime.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// While it lives no file can be opened.
class NoMoreFiles {
  public:
    NoMoreFiles() {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        set({0, before_.rlim_max});
    }
    ~NoMoreFiles() { set(before_); }
    NoMoreFiles(const NoMoreFiles&) = delete;
    NoMoreFiles& operator=(const NoMoreFiles&) = delete;

  private:
    static void set(const rlimit& limit) { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0); }

    rlimit before_{};
};

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
    now = test::writtenAt(path);
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

/// Too many files are open for a while.
TEST_F(UnchangedDocumentsTest, DocumentThatCouldNotBeReadIsNotRemembered) {
    test::writeFile(path, "[{},{}]");
    const auto start = TailOffset::messageIndex(0);
    {
        const NoMoreFiles none;
        EXPECT_TRUE(DocumentReading::since(path, start, json::parse, documents).records.empty());
    }
    EXPECT_EQ(DocumentReading::since(path, start, json::parse, documents).records.size(), 2U);
}

TEST_F(UnchangedDocumentsTest, DocumentThatDoesNotDecodeIsDecodedOnce) {
    static int decoded = 0;
    decoded = 0;
    const auto decode = [](std::string_view bytes) {
        ++decoded;
        return json::parse(bytes);
    };
    const auto start = TailOffset::messageIndex(0);
    const auto look = [&] {
        return DocumentReading::since(path, start, decode, documents).records.size();
    };
    test::writeFile(path, "[{},");
    EXPECT_EQ(look() + look() + look(), 0U);
    EXPECT_EQ(decoded, 1);
    test::writeFile(path, "[{},{}]");
    EXPECT_EQ(look(), 2U);
    EXPECT_EQ(decoded, 2);
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
