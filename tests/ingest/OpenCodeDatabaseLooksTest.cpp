#include "ingest/OpenCodeDatabaseReader.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <utility>

#include "ingest/FileTime.h"
#include "ingest/OpenCodeDatabaseReading.h"
#include "ingest/OpenCodeStore.h"
#include "support/ForkedProcess.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::OpenCodeStore;

/// How often the store is looked into, and what a look costs.
class OpenCodeDatabaseLooks : public test::OpenCodeDatabaseReading {};

TEST_F(OpenCodeDatabaseLooks, FindsTheEndOfALongSession) {
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
TEST_F(OpenCodeDatabaseLooks, FollowsALongSessionOfLargeMessagesWhateverItsIndexes) {
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

/// How many bytes this thread has read so far.
std::int64_t bytesRead() {
    std::ifstream counters("/proc/thread-self/io");
    std::string name;
    std::int64_t bytes = -1;
    counters >> name >> bytes;
    EXPECT_EQ(name, "rchar:");
    return bytes;
}

TEST_F(OpenCodeDatabaseLooks, WalksThroughPartsThatHaveNoIndexOnce) {
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

TEST_F(OpenCodeDatabaseLooks, LeavesAStoreAloneThatNobodyHasWrittenTo) {
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

TEST_F(OpenCodeDatabaseLooks, LooksAgainIntoAStoreThatMayStillBeWrittenTo) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "One.");
    now = test::writtenAt(path + "-wal");
    const Openings opened(dir.path());
    for (int look = 0; look < 3; ++look) {
        follow();
        EXPECT_TRUE(opened.sinceLastAsked());
    }
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

TEST_F(OpenCodeDatabaseLooks, DoesNotWaitForAnotherProcessThatHasTheStoreForItself) {
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

TEST_F(OpenCodeDatabaseLooks, AStoreThatIsNoLongerLockedIsReadOn) {
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
TEST_F(OpenCodeDatabaseLooks, LeavesAStoreAloneForAWhileWhenALookRanOut) {
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

TEST_F(OpenCodeDatabaseLooks, LooksForTheEndOnlyWhereItLooksAtAll) {
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

}  // namespace
}  // namespace sonra
