#include "ingest/OpenCodeDatabaseReader.h"

#include <gtest/gtest.h>

#include "ingest/OpenCodeDatabaseReading.h"
#include "ingest/OpenCodeParser.h"
#include "ingest/OpenCodeStore.h"

namespace sonra {
namespace {

using test::OpenCodeStore;

/// What is spoken, in which order, and where the cursor stands then.
class OpenCodeDatabaseReaderTest : public test::OpenCodeDatabaseReading {};

TEST_F(OpenCodeDatabaseReaderTest, SpeaksTextsInTheOrderInWhichTheyWereComplete) {
    OpenCodeStore store(path);
    addReply(store, "msg_b", 2000, "Second.");
    addReply(store, "msg_a", 1000, "First.");
    EXPECT_EQ(followed(), (Lines{"msg_a: First.", "msg_b: Second."}));
    expectNothing();
    EXPECT_EQ(cursor, reader.initialOffset(url));
}

TEST_F(OpenCodeDatabaseReaderTest, SpeaksAllTextsOfAMessage) {
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

TEST_F(OpenCodeDatabaseReaderTest, WaitsUntilATextIsComplete) {
    OpenCodeStore store(path);
    store.message("msg_a", OpenCodeStore::reply());
    store.part("prt_1", "msg_a", OpenCodeStore::text("Half a sent"));
    expectNothing();
    store.changePart("prt_1", OpenCodeStore::text("Half a sentence no more.", 1000));
    EXPECT_EQ(followed(), Lines{"msg_a: Half a sentence no more."});
    store.message("msg_a", OpenCodeStore::reply(9000));
    expectNothing();
}

TEST_F(OpenCodeDatabaseReaderTest, TakesATextForCompleteWithItsMessage) {
    OpenCodeStore store(path);
    store.message("msg_a", OpenCodeStore::reply());
    store.part("prt_1", "msg_a", R"({"type":"text","text":"Words."})");
    expectNothing();
    store.message("msg_a", OpenCodeStore::reply(1000));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

TEST_F(OpenCodeDatabaseReaderTest, SpeaksOnlyWhatCameAfterTheAttaching) {
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

TEST_F(OpenCodeDatabaseReaderTest, LosesNoTextOfTheSameTime) {
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

TEST_F(OpenCodeDatabaseReaderTest, MovesTheCursorOnlyForward) {
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

TEST_F(OpenCodeDatabaseReaderTest, TellsMessagesApartWhosePartsWereWrittenInTurns) {
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

TEST_F(OpenCodeDatabaseReaderTest, KeepsSessionsApart) {
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

TEST_F(OpenCodeDatabaseReaderTest, SpeaksNothingOfUsersAndSummaries) {
    OpenCodeStore store(path);
    store.message("msg_a", R"({"role":"user","time":{"created":1,"completed":2}})");
    store.part("prt_a", "msg_a", OpenCodeStore::text("A question.", 1000));
    store.message("msg_b", R"({"role":"assistant","summary":true,"time":{"completed":2}})");
    store.part("prt_b", "msg_b", OpenCodeStore::text("What was said so far.", 1000));
    expectNothing();
}

TEST_F(OpenCodeDatabaseReaderTest, PassesOverDataThatIsNotJson) {
    OpenCodeStore store(path);
    store.message("msg_a", "{\"role\":");
    store.part("prt_a", "msg_a", OpenCodeStore::text("Lost.", 1000));
    addReply(store, "msg_b", 2000, "Words.");
    store.part("prt_c", "msg_b", "\"text\"");
    store.run("INSERT INTO part VALUES('prt_d', 'msg_b', 'ses_1', 0, 0, x'00FF22746578742200')");
    EXPECT_EQ(followed(), Lines{"msg_b: Words."});
}

TEST_F(OpenCodeDatabaseReaderTest, BearsAnyTime) {
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

TEST_F(OpenCodeDatabaseReaderTest, YieldsRecordsThatAreNoMessagesToTheOriginalParser) {
    OpenCodeStore store(path);
    addReply(store, "msg_a", 1000, "One.");
    const auto records = reader.readSince(url, epoch).records;
    ASSERT_EQ(records.size(), 1U);
    EXPECT_FALSE(OpenCodeParser().parse(records[0]).has_value());
}

}  // namespace
}  // namespace sonra
