#include "control/IPCServer.h"
#include "support/LogWatch.h"
#include "support/ManualLoop.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using test::LogWatch;
using test::ManualLoop;

constexpr auto malformed = "ipc malformed json";
constexpr auto mismatch = "ipc proto mismatch, ignoring";
constexpr int someFd = 42;

/// A server that is given whole lines, and collects what it dispatches.
class IPCServerLines : public testing::Test {
  protected:
    IPCServerLines() {
        server.onCommand = [this](const Json& message) { dispatched.push_back(message); };
    }
    void line(std::string_view text) { server.handleLine(text, someFd); }
    /// The message that `text` dispatches; null if it dispatches none.
    Json dispatchOf(std::string_view text) {
        dispatched.clear();
        line(text);
        return dispatched.empty() ? Json() : dispatched.at(0);
    }

    ManualLoop loop;
    IPCServer server{loop, "/nowhere"};
    std::vector<Json> dispatched;
};

TEST_F(IPCServerLines, NotJsonDispatchesNothing) {
    LogWatch log;
    log.expect(malformed);
    line("not json at all");
    EXPECT_TRUE(dispatched.empty());
    const auto record = log.records(malformed).at(0);
    EXPECT_EQ((Json{{"fd", someFd}, {"bytes", 15}, {"sample", "not json at all"}}),
              record["input"]);
    EXPECT_EQ("IPCServer", record["class"]);
}

TEST_F(IPCServerLines, WhatIsNoObjectIsMalformed) {
    LogWatch log;
    log.expect(malformed);
    const std::vector<std::string> lines{
        "",
        " ",
        "[]",
        "1",
        "\"x\"",
        "null",
        "true",
        "{",
        "{}{}",
        "{\"cmd\":\"skip\",\"proto\":1,}",
        "{'cmd':'skip','proto':1}",
        "{\"cmd\":\"a\xFF\",\"proto\":1}",
        std::string(3000, '['),
        R"({"proto":1,"args":)" + std::string(3000, '[') + std::string(3000, ']') + "}",
        std::string("{\"proto\":1}\0", 12)};
    for (const auto& text : lines) line(text);
    EXPECT_TRUE(dispatched.empty());
    EXPECT_EQ(lines.size(), log.count(malformed));
}

TEST_F(IPCServerLines, TheSampleIsTheFirst80BytesIfTheyAreText) {
    LogWatch log;
    log.expect(malformed);
    const std::string accents = "a\xC3\xA4";
    const std::vector<std::pair<std::string, std::string>> cases{
        {std::string(200, 'x'), std::string(80, 'x')},
        {std::string(80, 'y'), std::string(80, 'y')},
        {"", ""},
        {"\x01\x1B[31m\"", "\x01\x1B[31m\""},
        {"\xFF\xFE", "<non-utf8>"},
        {std::string("\0\x80", 2), "<non-utf8>"},
        {accents, accents},
        {std::string(79, 'z') + "\xC3\xA4", "<non-utf8>"},
        {std::string(80, 'z') + "\xFF", std::string(80, 'z')}};
    for (const auto& [text, sample] : cases) {
        line(text);
        const auto record = log.records(malformed).back();
        EXPECT_EQ(sample, record["input"]["sample"]);
        EXPECT_EQ(text.size(), record["input"]["bytes"]);
    }
}

TEST_F(IPCServerLines, AnUnknownOrMissingProtoDispatchesNothing) {
    LogWatch log;
    log.expect(mismatch);
    const std::vector<std::pair<std::string, Json>> cases{
        {R"({"cmd":"skip","proto":999})", 999},
        {R"({"cmd":"skip"})", "absent"},
        {R"({"cmd":"skip","proto":0})", 0},
        {R"({"cmd":"skip","proto":3})", 3},
        {R"({"cmd":"skip","proto":-1})", -1},
        {R"({"cmd":"skip","proto":"1"})", "absent"},
        {R"({"cmd":"skip","proto":true})", "absent"},
        {R"({"cmd":"skip","proto":null})", "absent"},
        {R"({"cmd":"skip","proto":1.5})", "absent"},
        {R"({"cmd":"skip","proto":[1]})", "absent"},
        {R"({"cmd":"skip","proto":1e300})", "absent"},
        {R"({"cmd":"skip","args":{"proto":1}})", "absent"}};
    for (const auto& [text, got] : cases) {
        line(text);
        EXPECT_EQ((Json{{"fd", someFd}, {"cmd", "skip"}, {"got", got}, {"want", {1, 2}}}),
                  log.records(mismatch).back()["input"])
            << text;
    }
    EXPECT_TRUE(dispatched.empty());
    EXPECT_EQ(cases.size(), log.count(mismatch));
}

TEST_F(IPCServerLines, AMismatchNamesTheCommandOrSaysThatThereIsNone) {
    LogWatch log;
    log.expect(mismatch);
    for (const auto* text : {"{}", R"({"cmd":7})"}) {
        line(text);
        EXPECT_EQ("<absent>", log.records(mismatch).back()["input"]["cmd"]);
    }
}

TEST_F(IPCServerLines, ASecondLaunchIsAMismatchAndNothingElse) {
    LogWatch log;
    log.expect(mismatch);
    line(R"({"cmd":"search"})");
    EXPECT_TRUE(dispatched.empty());
    EXPECT_EQ(1U, log.records().size());
}

TEST_F(IPCServerLines, AcceptsBothVersions) {
    EXPECT_EQ(1, IPC_PROTO_VERSION);
    EXPECT_EQ("skip", dispatchOf(R"({"cmd":"skip","proto":1})")["cmd"]);
    EXPECT_EQ("skip", dispatchOf(R"({"proto":2,"kind":"command","cmd":"skip"})")["cmd"]);
    EXPECT_EQ("skip", dispatchOf(R"( {"proto":1.0,"cmd":"skip"} )")["cmd"]);
    EXPECT_EQ("unheard-of", dispatchOf(R"({"proto":1,"cmd":"unheard-of"})")["cmd"]);
}

TEST_F(IPCServerLines, ArgsAndTargetReachTheTopLevel) {
    const auto message = dispatchOf(
        R"({"proto":2,"kind":"command","cmd":"play","args":{"wav":"/tmp/a.wav","text":"hi",)"
        R"("sessionId":"s1"},"target":{"messageId":"m1"}})");
    EXPECT_EQ("play", message["cmd"]);
    EXPECT_EQ("/tmp/a.wav", message["wav"]);
    EXPECT_EQ("hi", message["text"]);
    EXPECT_EQ("s1", message["sessionId"]);
    EXPECT_EQ("m1", message["messageId"]);
}

TEST_F(IPCServerLines, ArgsOfVersion1AreLiftedToo) {
    const auto message =
        dispatchOf(R"({"proto":1,"kind":"command","cmd":"scrub","args":{"index":5}})");
    EXPECT_EQ(5, message["index"]);
}

TEST_F(IPCServerLines, LogsTheMessageWithItsRequestId) {
    const LogWatch log;
    line(R"({"cmd":"skip","proto":2,"requestId":"test-req"})");
    for (const auto* message : {"ipc message", "ipc dispatched"}) {
        const auto record = log.records(message).at(0);
        EXPECT_EQ(30, record["level"]) << message;
        EXPECT_EQ("skip", record["method"]) << message;
        EXPECT_EQ("test-req", record["requestId"]) << message;
        EXPECT_EQ((Json{{"cmd", "skip"}, {"proto", 2}}), record["input"]) << message;
    }
}

TEST_F(IPCServerLines, MakesARequestIdForTheLogOnly) {
    const LogWatch log;
    for (const auto* text : {R"({"cmd":"a","proto":1})", R"({"cmd":"a","proto":1,"requestId":7})"})
        line(text);
    const auto records = log.records("ipc message");
    const auto ends = log.records("ipc dispatched");
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(26U, records.at(i)["requestId"].get<std::string>().size());
        EXPECT_EQ(records.at(i)["requestId"], ends.at(i)["requestId"]);
    }
    EXPECT_NE(records[0]["requestId"], records[1]["requestId"]);
    EXPECT_FALSE(dispatched.at(0).contains("requestId"));
    EXPECT_EQ(7, dispatched.at(1)["requestId"]);
}

TEST_F(IPCServerLines, ACommandThatIsNoStringIsUnknownInTheLog) {
    const LogWatch log;
    line(R"({"cmd":5,"proto":1})");
    line(R"({"proto":1})");
    for (const auto& record : log.records("ipc message")) EXPECT_EQ("unknown", record["method"]);
    EXPECT_EQ(2U, dispatched.size());
}

TEST_F(IPCServerLines, DispatchesBetweenItsTwoRecords) {
    const LogWatch log;
    std::vector<std::size_t> before;
    server.onCommand = [&](const Json&) {
        before = {log.count("ipc message"), log.count("ipc dispatched")};
    };
    line(R"({"cmd":"skip","proto":1})");
    EXPECT_EQ((std::vector<std::size_t>{1, 0}), before);
    EXPECT_EQ(1U, log.count("ipc dispatched"));
}

TEST_F(IPCServerLines, WithoutASinkACommandIsOnlyLogged) {
    const LogWatch log;
    server.onCommand = nullptr;
    line(R"({"cmd":"skip","proto":1})");
    EXPECT_EQ(1U, log.count("ipc dispatched"));
}

TEST(IPCServerNormalize, FillsGapsAndOverwritesNothing) {
    const std::vector<std::pair<std::string, std::string>> cases{
        // A flat key wins; one that is missing is filled.
        {R"({"wav":"flat","args":{"wav":"a","text":"t"}})",
         R"({"wav":"flat","text":"t","args":{"wav":"a","text":"t"}})"},
        // Arguments win over the target.
        {R"({"args":{"id":1},"target":{"id":2,"x":3}})",
         R"({"id":1,"x":3,"args":{"id":1},"target":{"id":2,"x":3}})"},
        {R"({"target":{"messageId":"m"}})", R"({"messageId":"m","target":{"messageId":"m"}})"},
        {R"({"cmd":"a","args":{"cmd":"b"}})", R"({"cmd":"a","args":{"cmd":"b"}})"},
        {R"({"x":null,"args":{"x":1}})", R"({"x":null,"args":{"x":1}})"},
        // What is nested deeper stays there.
        {R"({"args":{"target":{"y":1},"args":2}})",
         R"({"target":{"y":1},"args":{"target":{"y":1},"args":2}})"},
        {R"({"args":{"o":{"p":1}}})", R"({"o":{"p":1},"args":{"o":{"p":1}}})"},
        // Neither is an object.
        {R"({"args":[1],"target":"t"})", R"({"args":[1],"target":"t"})"},
        {R"({"args":{},"target":null})", R"({"args":{},"target":null})"},
        {R"({})", R"({})"}};
    for (const auto& [before, after] : cases)
        EXPECT_EQ(Json::parse(after), IPCServer::normalize(Json::parse(before))) << before;
}

}  // namespace
}  // namespace sonra
