#include "ingest/OpenCodeDatabaseReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>

#include "ingest/OpenCodeDatabaseReading.h"
#include "ingest/OpenCodeStore.h"
#include "support/ForkedProcess.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::OpenCodeStore;

/// The files of a store: its log, damaged ones, and what is none.
class OpenCodeDatabaseFiles : public test::OpenCodeDatabaseReading {};

TEST_F(OpenCodeDatabaseFiles, SeesWhatAWriterCommitsAndNothingElse) {
    OpenCodeStore writer(path);
    addReply(writer, "msg_a", 1000, "One.");
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    writer.run("BEGIN");
    addReply(writer, "msg_b", 2000, "Two.");
    expectNothing();
    writer.run("COMMIT");
    EXPECT_EQ(followed(), Lines{"msg_b: Two."});
    writer.run("BEGIN");
    addReply(writer, "msg_c", 3000, "Three.");
    writer.run("ROLLBACK");
    expectNothing();
}

TEST_F(OpenCodeDatabaseFiles, CreatesNothingBesideTheStore) {
    auto writer = std::make_unique<OpenCodeStore>(path);
    addReply(*writer, "msg_a", 1000, "One.");
    const auto withWriter = namesInDir();
    EXPECT_EQ(withWriter.size(), 3U) << "the store, its log, the log's index";
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    EXPECT_EQ(namesInDir(), withWriter);
    addReply(*writer, "msg_b", 2000, "Two.");
    writer.reset();
    EXPECT_EQ(namesInDir(), std::set<std::string>{"opencode.db"});
    EXPECT_EQ(followed(), Lines{"msg_b: Two."});
    EXPECT_EQ(reader.initialOffset(url), cursor);
    EXPECT_EQ(namesInDir(), std::set<std::string>{"opencode.db"});
    OpenCodeStore again(path);
    addReply(again, "msg_c", 3000, "Three.");
    EXPECT_EQ(followed(), Lines{"msg_c: Three."});
}

TEST_F(OpenCodeDatabaseFiles, ReadsALogThatACrashLeft) {
    OpenCodeStore writer(path);
    addReply(writer, "msg_a", 1000, "One.");
    const auto copy = dir / "copy.db";
    fs::copy_file(path, copy);
    fs::copy_file(path + "-wal", copy + "-wal");
    url = copy + "#ses_1";
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    fs::copy_file(path + "-shm", copy + "-shm", fs::copy_options::overwrite_existing);
    cursor = epoch;
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
}

TEST_F(OpenCodeDatabaseFiles, ReadsAStoreWithoutALog) {
    OpenCodeStore store(path, "delete");
    addReply(store, "msg_a", 1000, "One.");
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    EXPECT_EQ(namesInDir(), std::set<std::string>{"opencode.db"});
}

TEST_F(OpenCodeDatabaseFiles, YieldsNothingOfWhatIsNoStore) {
    for (const std::string& content :
         {std::string(), std::string("not a database, but long enough to have a header"),
          std::string("SQLite format 3\0", 16), std::string(5000, '\0')}) {
        test::writeFile(path, content);
        expectNothing();
        test::writeFile(path + "-wal", "not a log");
        expectNothing();
        fs::remove(path + "-wal");
        fs::remove(path + "-shm");
    }
}

TEST_F(OpenCodeDatabaseFiles, YieldsNothingWithoutItsTables) {
    OpenCodeStore store(path);
    store.run("DROP TABLE part");
    expectNothing();
    store.run("CREATE TABLE part(id text, data text)");
    expectNothing();
    store.run("DROP TABLE message");
    expectNothing();
}

TEST_F(OpenCodeDatabaseFiles, BearsAStoreThatIsCutShort) {
    {
        OpenCodeStore store(path);
        for (int i = 0; i < 300; ++i)
            addReply(store, "msg_" + std::to_string(i), 1000 + i, std::string(300, 'x'));
    }
    const auto whole = test::readFile(path);
    ASSERT_GT(whole.size(), 100'000U);
    EXPECT_EQ(follow().size(), 300U);
    for (const std::size_t size : {99U, 100U, 4096U, 5000U, 8192U, 50'000U}) {
        cursor = epoch;
        test::writeFile(path, whole.substr(0, size));
        EXPECT_LT(follow().size(), 300U) << size;
    }
}

TEST_F(OpenCodeDatabaseFiles, BearsAStoreWithBytesChanged) {
    {
        OpenCodeStore store(path);
        for (int i = 0; i < 40; ++i) addReply(store, "msg_" + std::to_string(i), 1000 + i, "Word.");
    }
    const auto whole = test::readFile(path);
    for (std::size_t at = 16; at < whole.size(); at += 53) {
        auto changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x55);
        test::writeFile(path, changed);
        cursor = epoch;
        EXPECT_LE(follow().size(), 40U) << at;
    }
}

TEST_F(OpenCodeDatabaseFiles, YieldsNothingOfAStoreThatVanished) {
    {
        OpenCodeStore store(path);
        addReply(store, "msg_a", 1000, "One.");
    }
    EXPECT_EQ(follow().size(), 1U);
    fs::remove(path);
    expectNothing();
    EXPECT_EQ(reader.initialOffset(url), epoch);
    EXPECT_FALSE(reader.recognises(url));
    EXPECT_TRUE(namesInDir().empty());
}

TEST_F(OpenCodeDatabaseFiles, ReadsAStoreWhoseNameIsNotUtf8) {
    const auto odd = dir / "a?b=%41&\xFF #1.db";
    OpenCodeStore store(odd);
    addReply(store, "msg_a", 1000, "One.");
    url = odd + "#ses_1";
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
}

TEST_F(OpenCodeDatabaseFiles, RecognisesASessionInAFile) {
    EXPECT_FALSE(reader.recognises(url));
    test::writeFile(path, "");
    EXPECT_TRUE(reader.recognises(url));
    EXPECT_EQ(reader.watchPath(url), path);
    for (const auto& other : {path, path + "#", dir.path(), dir.path() + "#ses_1", std::string()}) {
        EXPECT_FALSE(reader.recognises(other)) << other;
        EXPECT_EQ(reader.watchPath(other), other);
    }
}

}  // namespace
}  // namespace sonra
