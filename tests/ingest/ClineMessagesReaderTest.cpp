#include "ingest/ClineMessagesReader.h"

#include <gtest/gtest.h>

#include "ingest/LiveTailReaderRegistry.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string user = R"({"id":"u","role":"user","content":[{"type":"text","text":"Please."}]})";
const std::string clineReply =
    R"({"id":"a","role":"assistant","ts":1783376873493,"content":[{"type":"thinking","thinking":"Hm."},{"type":"text","text":"Done."},{"type":"tool_use"}]})";

class ClineMessages : public testing::Test {
  protected:
    void write(const std::string& messages) {
        test::writeFile(path, R"({"version":1,"messages":[)" + messages + "]}");
    }

    test::TempDir dir;
    std::string path = dir / "s.messages.json";
    ClineMessagesReader reader;
};

TEST_F(ClineMessages, AreReadBehindTheCursor) {
    write(user);
    const auto end = reader.initialOffset(path);
    EXPECT_EQ(end, TailOffset::messageIndex(1));
    EXPECT_TRUE(reader.readSince(path, end).records.empty());
    write(user + "," + clineReply);
    const auto reading = reader.readSince(path, end);
    ASSERT_EQ(reading.records.size(), 1U);
    const auto message = reader.parser().parse(reading.records[0]);
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->text, "Done.");
    EXPECT_EQ(message->messageId, md5Prefix16("1783376873493Done."));
    EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(2));
}

TEST_F(ClineMessages, AreRecognisedByTheDocumentsBeginning) {
    write(user);
    EXPECT_TRUE(reader.recognises(path));
    test::writeFile(path, "\n  {");
    EXPECT_TRUE(reader.recognises(path));
    for (const auto* other : {"", "  ", "[", "[{}]", "x"}) {
        test::writeFile(path, other);
        EXPECT_FALSE(reader.recognises(path)) << other;
    }
    EXPECT_FALSE(reader.recognises(dir / "missing.json"));
}

TEST_F(ClineMessages, WhatIsNoArrayOfObjectsIsNothing) {
    for (const auto* content : {"{}", R"({"messages":{}})", R"({"messages":[1]})", R"({"mess)"}) {
        test::writeFile(path, content);
        EXPECT_EQ(reader.initialOffset(path), TailOffset::messageIndex(0)) << content;
        const auto reading = reader.readSince(path, TailOffset::messageIndex(3));
        EXPECT_TRUE(reading.records.empty()) << content;
        EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(3)) << content;
    }
}

TEST_F(ClineMessages, AreFollowedUnderTheAgentsOwnName) {
    write(user + "," + clineReply);
    const auto* registered = LiveTailReaderRegistry::reader("cline");
    const auto reading = registered->readSince(path, TailOffset::messageIndex(0));
    ASSERT_EQ(reading.records.size(), 2U);
    EXPECT_EQ(registered->parser().parse(reading.records[1])->text, "Done.");
}

}  // namespace
}  // namespace sonra
