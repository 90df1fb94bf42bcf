#include "search/SessionIndexStore.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>

#include "frame/Json.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

SessionRecord record(const std::string& id) {
    SessionRecord made;
    made.id = id;
    made.path = "/projects/p/" + id + ".jsonl";
    made.cwd = "/src/\"tts\"";
    made.project = "\"tts\"";
    made.mtime = 1760000000.123456789;
    made.size = std::numeric_limits<std::int64_t>::max();
    made.msgCount = 12;
    made.firstUserPrompt =
        "line\nfeed \\ \x01 gr\xC3\xB6\xC3\x9F"
        "e \xF0\x9F\x98\x80";
    made.lastSnippet = "done";
    made.source = "claude-code";
    made.gitBranch = "main";
    return made;
}

class SessionIndexStoreTest : public testing::Test {
  protected:
    /// What is loaded of a file with this content, and what is said of it.
    std::optional<IndexFile> load(std::string_view content) {
        test::writeFile(store_.cachePath(), content);
        testing::internal::CaptureStderr();
        auto file = store_.load();
        said_ = testing::internal::GetCapturedStderr();
        return file;
    }

    test::TempDir dir_;
    SessionIndexStore store_{dir_.path()};
    std::string said_;
};

TEST_F(SessionIndexStoreTest, ARecordSurvivesUnchangedAndSoDoVersionAndCount) {
    IndexFile file;
    file.sessions = {record("a"), record("b")};
    store_.save(file);
    const auto loaded = store_.load();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(*loaded, file);
    EXPECT_EQ(loaded->v, 2);
}

TEST_F(SessionIndexStoreTest, KeysAreSortedAndTheDocumentIsJson) {
    IndexFile file;
    file.sessions = {record("a")};
    const auto json = json::parseObject(file.encoded());
    ASSERT_TRUE(json);
    EXPECT_EQ(json::dump(*json), file.encoded());
    EXPECT_EQ(IndexFile().encoded(), R"({"sessions":[],"v":2})");
}

TEST_F(SessionIndexStoreTest, APathThatIsntUtf8ComesBack) {
    IndexFile file;
    file.sessions = {record("a"), record("b")};
    file.sessions[0].path = "/projects/\xFF\xC3/a.jsonl";
    store_.save(file);
    EXPECT_TRUE(json::parseObject(test::readFile(store_.cachePath())));
    EXPECT_EQ(store_.load(), file);
}

TEST_F(SessionIndexStoreTest, NothingRemainsBesideTheCache) {
    store_.save({});
    store_.save({});
    for (const auto& entry : fs::directory_iterator(dir_.path()))
        EXPECT_EQ(entry.path().filename(), "sessions.json");
}

TEST_F(SessionIndexStoreTest, ItsDirectoryIsMadeWithThoseAboveIt) {
    const SessionIndexStore deep(dir_ / "a/b/c");
    deep.save({});
    EXPECT_TRUE(deep.load());
}

TEST_F(SessionIndexStoreTest, AMissingCacheIsNothingSilently) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(store_.load());
    EXPECT_FALSE(SessionIndexStore(dir_ / "none").load());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(SessionIndexStoreTest, GarbageIsNothingAndIsSaid) {
    IndexFile file;
    file.sessions = {record("a")};
    const auto whole = file.encoded();
    const std::string cases[] = {"",
                                 "garbage",
                                 "[]",
                                 "{}",
                                 R"({"sessions":[]})",
                                 R"({"v":2})",
                                 R"({"sessions":{},"v":2})",
                                 R"({"sessions":[7],"v":2})",
                                 R"({"sessions":[{}],"v":2})",
                                 R"({"sessions":[],"v":true})",
                                 R"({"sessions":[],"v":2.5})",
                                 whole + "x",
                                 std::string(1000, '[')};
    for (const auto& content : cases) {
        EXPECT_FALSE(load(content)) << content;
        EXPECT_TRUE(said_.starts_with("[index-store] corrupt cache, rebuilding: ")) << said_;
        EXPECT_TRUE(said_.ends_with("\n"));
    }
}

TEST_F(SessionIndexStoreTest, ACacheCutShortAnywhereIsNothing) {
    IndexFile file;
    file.sessions = {record("a"), record("b")};
    const auto whole = file.encoded();
    for (std::size_t length = 0; length < whole.size(); ++length)
        ASSERT_FALSE(load(whole.substr(0, length))) << length;
}

TEST_F(SessionIndexStoreTest, EveryFieldMustBeThereAndOfItsType) {
    IndexFile file;
    file.sessions = {record("a")};
    const auto whole = *json::parseObject(file.encoded());
    for (const auto& [key, value] : whole["sessions"][0].items()) {
        auto without = whole;
        without["sessions"][0].erase(key);
        EXPECT_FALSE(load(json::dump(without))) << key;
        auto other = whole;
        other["sessions"][0][key] = true;
        EXPECT_FALSE(load(json::dump(other))) << key;
        other["sessions"][0][key] = nullptr;
        EXPECT_FALSE(load(json::dump(other))) << key;
    }
}

TEST_F(SessionIndexStoreTest, NumbersMayBeWrittenOtherwiseAndKeysMayBeMore) {
    IndexFile file;
    file.sessions = {record("a")};
    auto document = *json::parseObject(file.encoded());
    document["sessions"][0]["msgCount"] = 12.0;
    document["sessions"][0]["mtime"] = 5;
    document["sessions"][0]["color"] = "red";
    document["more"] = 1;
    const auto loaded = load(json::dump(document));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->sessions[0].msgCount, 12);
    EXPECT_EQ(loaded->sessions[0].mtime, 5.0);
}

TEST_F(SessionIndexStoreTest, AnotherVersionIsNothingAndIsSaid) {
    for (const int version : {0, 1, 3, -7}) {
        EXPECT_FALSE(load(R"({"sessions":[],"v":)" + std::to_string(version) + "}"));
        EXPECT_EQ(said_,
                  "[index-store] schema bump: discarding v" + std::to_string(version) + " cache\n");
    }
}

long peakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(SessionIndexStoreTest, TwoHundredMegabytesOfGarbageCostNothing) {
    test::writeFile(store_.cachePath(), "[[[[");
    fs::resize_file(store_.cachePath(), 200'000'000);
    const long before = peakKilobytes();
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(store_.load());
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_LT(peakKilobytes() - before, 20'000);
}

TEST_F(SessionIndexStoreTest, WhatWouldntBeLoadedIsntWritten) {
    IndexFile file;
    file.sessions = {record("a")};
    const SessionIndexStore small(dir_.path(), file.encoded().size());
    small.save(file);
    EXPECT_EQ(small.load(), file);
    auto larger = file;
    larger.sessions[0].lastSnippet += "!";
    try {
        small.save(larger);
        FAIL() << "nothing was thrown";
    } catch (const SessionIndexStoreError& error) {
        EXPECT_EQ(error.code(), EFBIG);
    }
    EXPECT_EQ(small.load(), file) << "the old one is better than none";
}

/// Two texts of two hundred characters, and the paths.
TEST_F(SessionIndexStoreTest, AHundredThousandSessionsInAScriptOfLongCharactersFit) {
    IndexFile file;
    file.sessions = {record("0b6f7f1d-bbbb-4b57-9a3a-5f0c2a516d0e")};
    auto& row = file.sessions[0];
    row.firstUserPrompt.clear();
    for (int i = 0; i < 200; ++i) row.firstUserPrompt += "\xE4\xB8\xAD";
    row.lastSnippet = row.firstUserPrompt;
    row.cwd = "/home/somebody/" + row.firstUserPrompt.substr(0, 60);
    row.project = row.firstUserPrompt.substr(0, 60);
    row.path = "/home/somebody/.claude/projects/" + std::string(60, '-') + "/" + row.id + ".jsonl";
    EXPECT_LT(file.encoded().size() * 100'000, SessionIndexStore::mostBytes);
}

/// While it lives no file can be opened.
class NoMoreFiles {
  public:
    NoMoreFiles() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreFiles() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoMoreFiles(const NoMoreFiles&) = delete;
    NoMoreFiles& operator=(const NoMoreFiles&) = delete;

  private:
    rlimit before_{};
};

/// As in a directory that may not be written to: there is no temporary file to be removed.
TEST_F(SessionIndexStoreTest, TheReasonIsTheFirstThingThatFailed) {
    try {
        const NoMoreFiles none;
        store_.save({});
        FAIL() << "nothing was thrown";
    } catch (const SessionIndexStoreError& error) {
        EXPECT_EQ(error.code(), EMFILE);
        EXPECT_STREQ(error.what(), "Too many open files");
    }
}

TEST_F(SessionIndexStoreTest, WhatCantBeWrittenIsThrownWithTheSystemsWords) {
    test::writeFile(dir_ / "file", "");
    try {
        SessionIndexStore(dir_ / "file/below").save({});
        FAIL() << "nothing was thrown";
    } catch (const SessionIndexStoreError& error) {
        EXPECT_EQ(error.code(), ENOTDIR);
        EXPECT_STREQ(error.what(), "Not a directory");
    }
    fs::create_directory(store_.cachePath());
    try {
        store_.save({});
        FAIL() << "nothing was thrown";
    } catch (const SessionIndexStoreError& error) {
        EXPECT_EQ(error.code(), EISDIR);
        EXPECT_STREQ(SessionIndexStoreError::domain(), "SessionIndexStore");
    }
    EXPECT_FALSE(fs::exists(store_.cachePath() + ".tmp"));
}

TEST_F(SessionIndexStoreTest, TheDirectoryIsTheUsersCachesByDefault) {
    const test::ScopedEnv home("HOME", "/home/x");
    {
        const test::ScopedEnv caches("XDG_CACHE_HOME", "/caches");
        EXPECT_EQ(SessionIndexStore().cachePath(), "/caches/Sonra/sessions.json");
    }
    const test::ScopedEnv relative("XDG_CACHE_HOME", "caches");
    EXPECT_EQ(SessionIndexStore().cacheDir(), "/home/x/.cache/Sonra");
}

}  // namespace
}  // namespace sonra
