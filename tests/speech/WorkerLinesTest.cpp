#include <gtest/gtest.h>

#include <vector>

#include "frame/Json.h"
#include "speech/WorkerLineReader.h"
#include "speech/WorkerMessage.h"
#include "speech/WorkerRequest.h"

namespace sonra {
namespace {

using Lines = std::vector<std::string>;

Lines read(WorkerLineReader& reader, std::initializer_list<std::string_view> reads) {
    Lines lines;
    for (const auto bytes : reads)
        reader.append(bytes, [&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}

TEST(WorkerLineReader, JoinsALineSplitOverTwoReads) {
    WorkerLineReader reader;
    EXPECT_EQ(read(reader, {"ab", "cd\n"}), Lines{"abcd"});
    EXPECT_EQ(reader.pending(), 0U);
}

TEST(WorkerLineReader, CutsTwoLinesOfOneRead) {
    WorkerLineReader reader;
    EXPECT_EQ(read(reader, {"ab\n\ncd\nrest"}), (Lines{"ab", "", "cd"}));
    EXPECT_EQ(reader.pending(), 4U);
}

TEST(WorkerLineReader, DropsAnEndlessLineAndGoesOn) {
    WorkerLineReader reader(8);
    EXPECT_EQ(read(reader, {"12345678\n"}), Lines{"12345678"});
    EXPECT_EQ(read(reader, {"12345", "6789", "more"}), Lines{});
    EXPECT_EQ(reader.pending(), 0U);
    EXPECT_EQ(read(reader, {" and more\nnext\n"}), Lines{"next"});
}

TEST(WorkerLineReader, ForgetsTheUnfinishedLineOnReset) {
    WorkerLineReader reader(4);
    EXPECT_EQ(read(reader, {"abcdef"}), Lines{});
    reader.reset();
    EXPECT_EQ(read(reader, {"x\n"}), Lines{"x"});
}

TEST(WorkerMessage, IgnoresWhatIsNoMessage) {
    for (const std::string_view line :
         {"", "{", "no json", "[]", "7", "null", "{}", R"({"type":7})", R"({"type":"pong"})",
          R"({"type":"Ready"})", "\xff\xfe", R"({"id":1,"ok":true})"})
        EXPECT_EQ(WorkerMessage::parse(line), std::nullopt) << line;
}

TEST(WorkerMessage, ReadsReady) {
    struct Row {
        std::string_view line;
        std::optional<std::int32_t> pid;
    };
    for (const auto& [line, pid] :
         {Row{R"({"type":"ready","pid":41})", 41}, Row{R"({"type":"ready"})", {}},
          Row{R"({"type":"ready","pid":0})", {}}, Row{R"({"type":"ready","pid":-3})", {}},
          Row{R"({"type":"ready","pid":"41"})", {}}, Row{R"({"type":"ready","pid":true})", {}},
          Row{R"({"type":"ready","pid":2147483647})", 2147483647},
          Row{R"({"type":"ready","pid":2147483648})", {}},
          Row{R"({"type":"ready","pid":4.5})", {}}}) {
        const auto message = WorkerMessage::parse(line);
        ASSERT_TRUE(message) << line;
        EXPECT_EQ(message->type, WorkerMessage::Type::ready);
        EXPECT_EQ(message->pid, pid) << line;
    }
    EXPECT_EQ(WorkerMessage::parse(R"({"type":"ready","backend":"espeak-ng"})")->backend,
              "espeak-ng");
}

TEST(WorkerMessage, ReadsResult) {
    struct Row {
        std::string_view line;
        std::optional<std::int64_t> id;
        bool ok;
    };
    for (const auto& [line, id, ok] : {Row{R"({"type":"result","id":3,"ok":true})", 3, true},
                                       Row{R"({"type":"result","id":3,"ok":false})", 3, false},
                                       Row{R"({"type":"result","id":3})", 3, false},
                                       Row{R"({"type":"result","id":3,"ok":1})", 3, false},
                                       Row{R"({"type":"result","id":3,"ok":"true"})", 3, false},
                                       Row{R"({"type":"result","ok":true})", {}, true},
                                       Row{R"({"type":"result","id":"3","ok":true})", {}, true},
                                       Row{R"({"type":"result","id":true,"ok":true})", {}, true}}) {
        const auto message = WorkerMessage::parse(line);
        ASSERT_TRUE(message) << line;
        EXPECT_EQ(message->type, WorkerMessage::Type::result);
        EXPECT_EQ(message->id, id) << line;
        EXPECT_EQ(message->ok, ok) << line;
    }
}

TEST(WorkerRequest, IsOneLineWithTheSpeedAsText) {
    const WorkerRequest request{.id = 5,
                                .text = "two\nlines \"q\"",
                                .voice = "af_heart",
                                .speed = 1.0,
                                .outWav = "/t/a.wav"};
    const auto line = request.line();
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(json::parse(line), (Json{{"type", "synth_file"},
                                       {"id", 5},
                                       {"text", "two\nlines \"q\""},
                                       {"voice", "af_heart"},
                                       {"speed", "1.0"},
                                       {"outWav", "/t/a.wav"}}));
}

}  // namespace
}  // namespace sonra
