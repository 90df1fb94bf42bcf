#include "ingest/OpenCodeDatabaseReader.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <utility>

#include "ingest/FileTime.h"
#include "ingest/OpenCodeParser.h"
#include "ingest/OpenCodeStore.h"
#include "support/ForkedProcess.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::OpenCodeStore;

const TailOffset epoch = TailOffset::unixMs(0);

/// However slow the machine is.
constexpr std::chrono::minutes longEnough{1};

class OpenCodeDatabaseReading : public testing::Test {
  protected:
    std::vector<HistoryMessage> follow() {
        const auto reading = reader.readSince(url, cursor);
        cursor = cursor.advanced(reading.newOffset);
        std::vector<HistoryMessage> messages;
        for (const auto& record : reading.records)
            if (auto found = reader.parser().parse(record)) messages.push_back(*std::move(found));
        return messages;
    }
    /// "id: text" of what a read speaks.
    std::vector<std::string> followed() {
        std::vector<std::string> lines;
        for (const auto& found : follow()) lines.push_back(found.messageId + ": " + found.text);
        return lines;
    }
    using Lines = std::vector<std::string>;

    void addReply(OpenCodeStore& store, const std::string& id, std::int64_t ms,
                  const std::string& words) const {
        store.message(id, OpenCodeStore::reply(ms));
        store.part("prt_" + id, id, OpenCodeStore::text(words, ms));
    }
    void expectNothing() {
        const auto before = cursor;
        EXPECT_EQ(followed(), Lines{});
        EXPECT_EQ(cursor, before);
    }
    /// As where nothing of what can't be seen is new.
    void expectEndIsNow() const {
        const auto ms = std::chrono::floor<std::chrono::milliseconds>(now).time_since_epoch();
        EXPECT_EQ(reader.initialOffset(url), TailOffset::unixMs(ms.count() * 1000));
    }
    /// Not at all isn't long enough: the lock may be there for a moment only.
    static void expectShort(std::chrono::microseconds wait) {
        EXPECT_GT(wait.count(), 1'000);
        EXPECT_LE(wait.count(), 25'000);
    }
    std::set<std::string> namesInDir() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.path()))
            names.insert(entry.path().filename().string());
        return names;
    }

    test::TempDir dir;
    const std::string path = dir / "opencode.db";
    std::string url = path + "#ses_1";
    std::chrono::system_clock::time_point now{std::chrono::milliseconds(5'000'000)};
    const OpenCodeDatabaseReader reader{[this] { return now; }, longEnough};
    TailOffset cursor = epoch;
};

TEST_F(OpenCodeDatabaseReading, SpeaksTextsInTheOrderInWhichTheyWereComplete) {
    OpenCodeStore store(path);
    addReply(store, "msg_b", 2000, "Second.");
    addReply(store, "msg_a", 1000, "First.");
    EXPECT_EQ(followed(), (Lines{"msg_a: First.", "msg_b: Second."}));
    expectNothing();
    EXPECT_EQ(cursor, reader.initialOffset(url));
}

TEST_F(OpenCodeDatabaseReading, SpeaksAllTextsOfAMessage) {
    OpenCodeStore store(path);
    store.message("msg_a", OpenCodeStore::reply(3000));
    store.part("prt_1", "msg_a", R"({"type":"step-start"})");
    store.part("prt_2", "msg_a", R"({"type":"text","text":"Added.","synthetic":true})");
    store.part("prt_3", "msg_a", OpenCodeStore::text(" First. ", 1000));
    store.part("prt_4", "msg_a", R"({"type":"tool","state":{"output":"\"text\""}})");
    store.part("prt_5", "msg_a", OpenCodeStore::text("Second.", 2000));
    store.part("prt_6", "msg_a", R"({"type":"text","text":"Third."})");
    EXPECT_EQ(followed(), (Lines{"msg_a: First.", "prt_5: Second.", "prt_6: Third."}));
}

TEST_F(OpenCodeDatabaseReading, WaitsUntilATextIsComplete) {
    OpenCodeStore store(path);
    store.message("msg_a", OpenCodeStore::reply());
    store.part("prt_1", "msg_a", OpenCodeStore::text("Half a sent"));
    expectNothing();
    store.changePart("prt_1", OpenCodeStore::text("Half a sentence no more.", 1000));
    EXPECT_EQ(followed(), Lines{"msg_a: Half a sentence no more."});
    store.message("msg_a", OpenCodeStore::reply(9000));
    expectNothing();
}

TEST_F(OpenCodeDatabaseReading, TakesATextForCompleteWithItsMessage) {
    OpenCodeStore store(path);
    store.message("msg_a", OpenCodeStore::reply());
    store.part("prt_1", "msg_a", R"({"type":"text","text":"Words."})");
    expectNothing();
    store.message("msg_a", OpenCodeStore::reply(1000));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

TEST_F(OpenCodeDatabaseReading, SpeaksOnlyWhatCameAfterTheAttaching) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "Old.");
    addReply(store, "msg_b", 2000, "Old as well.");
    store.message("msg_c", OpenCodeStore::reply());
    store.part("prt_c", "msg_c", OpenCodeStore::text("Under way"));
    cursor = reader.initialOffset(url);
    expectNothing();
    store.changePart("prt_c", OpenCodeStore::text("Under way no more.", 3000));
    EXPECT_EQ(followed(), Lines{"msg_c: Under way no more."});
}

TEST_F(OpenCodeDatabaseReading, LosesNoTextOfTheSameTime) {
    OpenCodeStore store(path);
    addReply(store, "msg_c", 1000, "One.");
    addReply(store, "msg_b", 1000, "Two.");
    cursor = reader.initialOffset(url);
    addReply(store, "msg_a", 1000, "Three.");
    EXPECT_EQ(followed(), Lines{"msg_a: Three."});
    addReply(store, "msg_d", 1000, "Four.");
    EXPECT_EQ(followed(), Lines{"msg_d: Four."});
    expectNothing();
    addReply(store, "msg_e", 1001, "Five.");
    EXPECT_EQ(followed(), Lines{"msg_e: Five."});
}

TEST_F(OpenCodeDatabaseReading, MovesTheCursorOnlyForward) {
    OpenCodeStore store(path);
    std::int64_t before = -1;
    for (int i = 1; i < 40; ++i) {
        addReply(store, "msg_" + std::to_string(i), 1000 + i / 3, "Words.");
        EXPECT_EQ(follow().size(), 1U);
        EXPECT_GT(cursor.intValue(), before);
        before = cursor.intValue();
    }
    // The number is all that is kept of it.
    cursor = TailOffset::unixMs(before);
    expectNothing();
}

TEST_F(OpenCodeDatabaseReading, FindsTheEndOfALongSession) {
    OpenCodeStore store(path);
    store.run("BEGIN");
    for (int i = 0; i < 300; ++i) addReply(store, "msg_" + std::to_string(i), 1000 + i, "Words.");
    store.run("COMMIT");
    EXPECT_EQ(reader.initialOffset(url), TailOffset::unixMs(1299 * 1000 + 1));
    EXPECT_EQ(follow().size(), 300U);
    EXPECT_EQ(cursor, reader.initialOffset(url));
}

/// Messages that are large because of what the user has pasted, with all indexes that a store may
/// have on them.
TEST_F(OpenCodeDatabaseReading, FollowsALongSessionOfLargeMessagesWhateverItsIndexes) {
    OpenCodeStore store(path);
    store.run("BEGIN");
    const std::string pasted = R"({"role":"user","text":")" + std::string(400'000, 'x') + "\"}";
    for (int i = 0; i < 400; ++i) {
        store.message("msg_u" + std::to_string(i), pasted);
        addReply(store, "msg_" + std::to_string(i), 1000 + i, "Words.");
    }
    store.run("COMMIT");
    const std::vector<std::string> indexes{
        "CREATE INDEX message_time_idx ON message(session_id, time_created, id)",
        "DROP INDEX message_time_idx", "DROP INDEX part_message_idx",
        "CREATE INDEX part_message_id_idx ON part(message_id, id)"};
    store.run("DROP INDEX message_session_idx");
    std::int64_t ms = 1399;
    for (const auto& change : indexes) {
        store.run(change);
        cursor = reader.initialOffset(url);
        EXPECT_EQ(cursor.intValue() / 1000, ms) << change;
        const auto id = "msg_new" + std::to_string(++ms);
        addReply(store, id, ms, "New.");
        EXPECT_EQ(followed(), Lines{id + ": New."}) << change;
    }
}

TEST_F(OpenCodeDatabaseReading, TellsMessagesApartWhosePartsWereWrittenInTurns) {
    OpenCodeStore store(path);
    for (const std::string round : {"1", "2"}) {
        for (int i = 10; i < 50; ++i) {
            const auto id = std::to_string(i);
            if (round == "1") store.message("msg_" + id, OpenCodeStore::reply(1000 + i));
            store.part("prt_" + id + round, "msg_" + id,
                       OpenCodeStore::text(id + "/" + round, 1000 + i));
        }
    }
    Lines expected;
    for (int i = 10; i < 50; ++i) {
        const auto id = std::to_string(i);
        expected.push_back("msg_" + id + ": " + id + "/1");
        expected.push_back("prt_" + id + "2: " + id + "/2");
    }
    EXPECT_EQ(followed(), expected);
    EXPECT_EQ(cursor, reader.initialOffset(url));
}

/// How many bytes this thread has read so far.
std::int64_t bytesRead() {
    std::ifstream counters("/proc/thread-self/io");
    std::string name;
    std::int64_t bytes = -1;
    counters >> name >> bytes;
    EXPECT_EQ(name, "rchar:");
    return bytes;
}

TEST_F(OpenCodeDatabaseReading, WalksThroughPartsThatHaveNoIndexOnce) {
    {
        OpenCodeStore store(path);
        store.run("DROP INDEX part_message_idx");
        store.run("BEGIN");
        for (int i = 1000; i < 1020; ++i) {
            const auto id = "msg_" + std::to_string(i);
            addReply(store, id, i, "Words.");
            for (int part = 0; part < 100; ++part)
                store.part("prt_" + id + "_" + std::to_string(part), id, std::string(3000, 'x'));
        }
        store.run("COMMIT");
    }
    const auto size = static_cast<std::int64_t>(fs::file_size(path));
    ASSERT_GT(size, 6'000'000) << "more than a look keeps in memory";
    cursor = TailOffset::unixMs(1018 * 1000 + 1);
    const auto before = bytesRead();
    EXPECT_EQ(followed(), Lines{"msg_1019: Words."});
    EXPECT_LT(bytesRead() - before, 2 * size);
}

/// Tells whether files in a folder are opened: a look opens the store's log in any case.
class Openings {
  public:
    explicit Openings(const std::string& folder) {
        EXPECT_GE(inotify_add_watch(queue_, folder.c_str(), IN_OPEN), 0);
    }
    ~Openings() { close(queue_); }
    Openings(const Openings&) = delete;
    Openings& operator=(const Openings&) = delete;

    bool sinceLastAsked() const {
        std::array<char, 4096> events{};
        return read(queue_, events.data(), events.size()) > 0;
    }

  private:
    const int queue_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

TEST_F(OpenCodeDatabaseReading, LeavesAStoreAloneThatNobodyHasWrittenTo) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "One.");
    now = std::chrono::system_clock::now() + std::chrono::hours(1);
    const Openings opened(dir.path());
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    EXPECT_TRUE(opened.sinceLastAsked());
    expectNothing();
    EXPECT_FALSE(opened.sinceLastAsked());
    addReply(store, "msg_b", 2000, "Two.");
    EXPECT_EQ(followed(), Lines{"msg_b: Two."}) << "which stands in the log only";
    expectNothing();
    cursor = epoch;
    EXPECT_EQ(followed(), (Lines{"msg_a: One.", "msg_b: Two."})) << "for who starts again";
    url = path + "#ses_2";
    cursor = epoch;
    EXPECT_TRUE(opened.sinceLastAsked());
    expectNothing();
    EXPECT_TRUE(opened.sinceLastAsked()) << "another session's end is another";
}

TEST_F(OpenCodeDatabaseReading, LooksAgainIntoAStoreThatMayStillBeWrittenTo) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "One.");
    now = test::writtenAt(path + "-wal");
    const Openings opened(dir.path());
    for (int look = 0; look < 3; ++look) {
        follow();
        EXPECT_TRUE(opened.sinceLastAsked());
    }
}

TEST_F(OpenCodeDatabaseReading, KeepsSessionsApart) {
    OpenCodeStore store(path);
    store.message("msg_z", OpenCodeStore::reply(1000), "ses_sub");
    store.part("prt_z", "msg_z", OpenCodeStore::text("The sub-agent's.", 1000));
    addReply(store, "msg_a", 500, "Mine.");
    EXPECT_EQ(followed(), Lines{"msg_a: Mine."});
    url = path + "#ses_sub";
    cursor = epoch;
    EXPECT_EQ(followed(), Lines{"msg_z: The sub-agent's."});
    url = path + "#ses_other";
    cursor = epoch;
    expectNothing();
    EXPECT_EQ(reader.initialOffset(url), epoch);
}

TEST_F(OpenCodeDatabaseReading, SpeaksNothingOfUsersAndSummaries) {
    OpenCodeStore store(path);
    store.message("msg_a", R"({"role":"user","time":{"created":1,"completed":2}})");
    store.part("prt_a", "msg_a", OpenCodeStore::text("A question.", 1000));
    store.message("msg_b", R"({"role":"assistant","summary":true,"time":{"completed":2}})");
    store.part("prt_b", "msg_b", OpenCodeStore::text("What was said so far.", 1000));
    expectNothing();
}

TEST_F(OpenCodeDatabaseReading, PassesOverDataThatIsNotJson) {
    OpenCodeStore store(path);
    store.message("msg_a", "{\"role\":");
    store.part("prt_a", "msg_a", OpenCodeStore::text("Lost.", 1000));
    addReply(store, "msg_b", 2000, "Words.");
    store.part("prt_c", "msg_b", "\"text\"");
    store.run("INSERT INTO part VALUES('prt_d', 'msg_b', 'ses_1', 0, 0, x'00FF22746578742200')");
    EXPECT_EQ(followed(), Lines{"msg_b: Words."});
}

TEST_F(OpenCodeDatabaseReading, BearsAnyTime) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", INT64_MAX, "Late.");
    addReply(store, "msg_b", -5, "Early.");
    EXPECT_EQ(followed(), (Lines{"msg_b: Early.", "msg_a: Late."}));
    expectNothing();
    cursor = TailOffset::unixMs(INT64_MAX);
    expectNothing();
    cursor = TailOffset::unixMs(-7);
    expectNothing();
}

TEST_F(OpenCodeDatabaseReading, SeesWhatAWriterCommitsAndNothingElse) {
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

TEST_F(OpenCodeDatabaseReading, CreatesNothingBesideTheStore) {
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

TEST_F(OpenCodeDatabaseReading, ReadsALogThatACrashLeft) {
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

TEST_F(OpenCodeDatabaseReading, ReadsAStoreWithoutALog) {
    OpenCodeStore store(path, "delete");
    addReply(store, "msg_a", 1000, "One.");
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    EXPECT_EQ(namesInDir(), std::set<std::string>{"opencode.db"});
}

/// Counts for how long SQLite would sleep meanwhile, which it does while it waits for a lock; it
/// doesn't.
class SqliteSleeps {
  public:
    SqliteSleeps() {
        replaced_ = sqlite3_vfs_find(nullptr);
        counting_ = *replaced_;
        counting_.zName = "counting";
        counting_.xSleep = [](sqlite3_vfs*, int microseconds) {
            asked_ += std::chrono::microseconds(microseconds);
            return microseconds;
        };
        asked_ = {};
        EXPECT_EQ(sqlite3_vfs_register(&counting_, 1), SQLITE_OK);
    }
    ~SqliteSleeps() {
        sqlite3_vfs_unregister(&counting_);
        sqlite3_vfs_register(replaced_, 1);
    }
    SqliteSleeps(const SqliteSleeps&) = delete;
    SqliteSleeps& operator=(const SqliteSleeps&) = delete;

    std::chrono::microseconds sinceLastAsked() const { return std::exchange(asked_, {}); }

  private:
    inline static std::chrono::microseconds asked_{};

    sqlite3_vfs counting_{};
    sqlite3_vfs* replaced_ = nullptr;
};

TEST_F(OpenCodeDatabaseReading, DoesNotWaitForAnotherProcessThatHasTheStoreForItself) {
    for (const char* journal : {"wal", "delete"}) {
        const auto locked = dir / (std::string(journal) + ".db");
        url = locked + "#ses_1";
        cursor = epoch;
        {
            OpenCodeStore store(locked, journal);
            addReply(store, "msg_a", 1000, "One.");
        }
        std::array<int, 2> held{};
        ASSERT_EQ(pipe(held.data()), 0);
        const test::ForkedProcess holder([&] {
            OpenCodeStore store(locked, journal);
            store.run("PRAGMA locking_mode=EXCLUSIVE");
            store.run("BEGIN EXCLUSIVE");
            store.part("prt_z", "msg_a", "{}");
            EXPECT_EQ(write(held[1], "!", 1), 1);
            for (;;) pause();
        });
        char mark = 0;
        ASSERT_EQ(read(held[0], &mark, 1), 1);
        close(held[0]);
        close(held[1]);
        const SqliteSleeps slept;
        expectNothing();
        expectShort(slept.sinceLastAsked());
        expectNothing();
        expectEndIsNow();
        EXPECT_EQ(slept.sinceLastAsked(), std::chrono::milliseconds(0)) << "it is left alone now";
        now += LookPauses::longest;
        expectEndIsNow();
        expectShort(slept.sinceLastAsked());
        expectNothing();
        EXPECT_EQ(slept.sinceLastAsked(), std::chrono::milliseconds(0));
    }
}

TEST_F(OpenCodeDatabaseReading, AStoreThatIsNoLongerLockedIsReadOn) {
    OpenCodeStore store(path, "delete");
    addReply(store, "msg_a", 1000, "One.");
    const SqliteSleeps slept;
    store.run("BEGIN EXCLUSIVE");
    expectNothing();
    store.run("ROLLBACK");
    now += LookPauses::longest;
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
    store.run("BEGIN EXCLUSIVE");
    store.part("prt_z", "msg_a", "{}");
    expectNothing();
    store.run("COMMIT");
    now += std::chrono::seconds(1);
    expectNothing();
    addReply(store, "msg_b", 2000, "Two.");
    EXPECT_EQ(followed(), Lines{"msg_b: Two."}) << "the pause was a short one again";
}

/// As in a store so big that a walk through it takes longer than a look may.
TEST_F(OpenCodeDatabaseReading, LeavesAStoreAloneForAWhileWhenALookRanOut) {
    const OpenCodeDatabaseReader hurried{[this] { return now; }, std::chrono::milliseconds(-1)};
    const auto found = [&] { return hurried.readSince(url, epoch).records.size(); };
    OpenCodeStore store(path);
    store.run("DROP INDEX part_message_idx");
    addReply(store, "msg_a", 1000, "One.");
    EXPECT_EQ(found(), 1U)
        << "so small a store is walked through before anybody looks at the clock";
    store.run(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)"
        " INSERT INTO part SELECT 'other_' || i, 'msg_other', 'ses_2', 0, 0, '{}' FROM n");
    EXPECT_EQ(found(), 0U);
    store.run("DELETE FROM part WHERE session_id = 'ses_2'");
    EXPECT_EQ(found(), 0U) << "whatever is written meanwhile";
    now += std::chrono::milliseconds(9);
    EXPECT_EQ(found(), 0U);
    now += LookPauses::longest;
    EXPECT_EQ(found(), 1U);
    EXPECT_EQ(found(), 1U);
}

TEST_F(OpenCodeDatabaseReading, LooksForTheEndOnlyWhereItLooksAtAll) {
    const OpenCodeDatabaseReader hurried{[this] { return now; }, std::chrono::milliseconds(-1)};
    const auto end = [&] { return hurried.initialOffset(url); };
    OpenCodeStore store(path);
    store.run("DROP INDEX part_message_idx");
    addReply(store, "msg_a", 1000, "One.");
    const auto known = end();
    EXPECT_EQ(known.intValue(), 1000 * 1000 + 1);
    store.run(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)"
        " INSERT INTO part SELECT 'other_' || i, 'msg_other', 'ses_2', 0, 0, '{}' FROM n");
    EXPECT_GT(end().intValue(), known.intValue()) << "what can't be found out is old";
    store.run("DELETE FROM part WHERE session_id = 'ses_2'");
    EXPECT_TRUE(hurried.readSince(url, epoch).records.empty());
    EXPECT_GT(end().intValue(), known.intValue());
    now += LookPauses::longest;
    EXPECT_EQ(end(), known);
    EXPECT_EQ(hurried.readSince(url, epoch).records.size(), 1U);
}

TEST_F(OpenCodeDatabaseReading, YieldsNothingOfWhatIsNoStore) {
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

TEST_F(OpenCodeDatabaseReading, YieldsNothingWithoutItsTables) {
    OpenCodeStore store(path);
    store.run("DROP TABLE part");
    expectNothing();
    store.run("CREATE TABLE part(id text, data text)");
    expectNothing();
    store.run("DROP TABLE message");
    expectNothing();
}

TEST_F(OpenCodeDatabaseReading, BearsAStoreThatIsCutShort) {
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

TEST_F(OpenCodeDatabaseReading, BearsAStoreWithBytesChanged) {
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

TEST_F(OpenCodeDatabaseReading, YieldsNothingOfAStoreThatVanished) {
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

TEST_F(OpenCodeDatabaseReading, ReadsAStoreWhoseNameIsNotUtf8) {
    const auto odd = dir / "a?b=%41&\xFF #1.db";
    OpenCodeStore store(odd);
    addReply(store, "msg_a", 1000, "One.");
    url = odd + "#ses_1";
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
}

TEST_F(OpenCodeDatabaseReading, RecognisesASessionInAFile) {
    EXPECT_FALSE(reader.recognises(url));
    test::writeFile(path, "");
    EXPECT_TRUE(reader.recognises(url));
    EXPECT_EQ(reader.watchPath(url), path);
    for (const auto& other : {path, path + "#", dir.path(), dir.path() + "#ses_1", std::string()}) {
        EXPECT_FALSE(reader.recognises(other)) << other;
        EXPECT_EQ(reader.watchPath(other), other);
    }
}

TEST_F(OpenCodeDatabaseReading, YieldsRecordsThatAreNoMessagesToTheOriginalParser) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "One.");
    const auto records = reader.readSince(url, epoch).records;
    ASSERT_EQ(records.size(), 1U);
    EXPECT_FALSE(OpenCodeParser().parse(records[0]).has_value());
}

}  // namespace
}  // namespace sonra
