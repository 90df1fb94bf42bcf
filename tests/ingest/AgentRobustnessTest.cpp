#include <gtest/gtest.h>

#include "ingest/LiveTailReaderRegistry.h"
#include "support/TempDir.h"

/// What files may hold besides well-formed replies, for every agent whose transcript is JSON.
namespace sonra {
namespace {

/// A reply as the agent writes it: what stands in front of its words, and behind them.
struct Agent {
    const char* source;
    const char* front;
    const char* back;
};

const Agent lineAgents[] = {
    {"claude-code",
     R"({"type":"assistant","uuid":"u","message":{"content":[{"type":"text","text":)", "}]}}"},
    {"codex",
     R"({"type":"response_item","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":)",
     "}]}}"},
    {"gemini", R"({"type":"gemini","content":)", "}"},
    {"pi",
     R"({"type":"message","id":"a","message":{"role":"assistant","content":[{"type":"text","text":)",
     "}]}}"},
};

const std::vector<std::string> scripts{
    "The tests pass.",     "すべてのテストに合格しました。",
    "所有测试都通过了。",  "모든 테스트를 통과했습니다.",
    "Все тесты пройдены.", "كل الاختبارات ناجحة.",
    "כל הבדיקות עברו.",    "सभी परीक्षण सफल रहे।",
    "การทดสอบผ่านทั้งหมด",    "Όλα πέρασαν.",
    "ყველა ტესტი გავიდა.", "👩‍👩‍👧‍👦 🇺🇦 e\u0301 𝒻",
};

class LineAgent : public testing::TestWithParam<Agent> {
  protected:
    static std::string reply(const std::string& words) {
        return GetParam().front + Json(words).dump() + GetParam().back;
    }
    std::vector<std::string> textsOf(const std::string& content) {
        test::writeFile(path, content);
        const auto reading = reader.readSince(path, TailOffset::byte(0));
        EXPECT_EQ(reading.newOffset, reader.initialOffset(path));
        std::vector<std::string> texts;
        for (const auto& record : reading.records)
            if (const auto message = reader.parser().parse(record)) texts.push_back(message->text);
        return texts;
    }

    test::TempDir dir;
    std::string path = dir / "session.jsonl";
    const LiveTailReader& reader = *LiveTailReaderRegistry::reader(GetParam().source);
};

TEST_P(LineAgent, LinesThatEndAsOnOtherSystemsAreRead) {
    EXPECT_EQ(textsOf(reply("One.") + "\r\n\r\n" + reply("Two.") + "\r\n"),
              (std::vector<std::string>{"One.", "Two."}));
}

TEST_P(LineAgent, UnknownRecordsYieldNothingAndBreakNothing) {
    const std::string unknown =
        "{\"type\":\"of tomorrow\",\"message\":{\"role\":\"assistant\"}}\n{}\n[]\nnull\n7\n\"x\"\n"
        "{\"type\":{\"a\":1},\"payload\":[],\"content\":{}}\n{\"type\":\"assistant\"\n\x01\n";
    EXPECT_EQ(textsOf(unknown + reply("One.") + "\n" + unknown + reply("Two.") + "\n" + unknown),
              (std::vector<std::string>{"One.", "Two."}));
}

TEST_P(LineAgent, TwoRecordsOnALineYieldNothingAndTheNextLineIsRead) {
    EXPECT_EQ(textsOf(reply("One.") + reply("Two.") + "\n" + reply("Three.") + "\n"),
              std::vector<std::string>{"Three."});
}

TEST_P(LineAgent, SeveralLinesMayHaveOneId) {
    EXPECT_EQ(textsOf(reply("One.") + "\n" + reply("Two.") + "\n"),
              (std::vector<std::string>{"One.", "Two."}));
}

TEST_P(LineAgent, ALineOfAMegabyteIsRead) {
    std::string words;
    while (words.size() < (std::size_t{1} << 20U)) words += "Many words, and ein paar größere. ";
    words += "End.";
    EXPECT_EQ(textsOf(reply("One.") + "\n" + reply(words) + "\n" + reply("Two.") + "\n"),
              (std::vector<std::string>{"One.", words, "Two."}));
}

TEST_P(LineAgent, TextsInEveryScriptAreKeptAsTheyAre) {
    std::string plain;
    std::string escaped;
    for (const auto& words : scripts) {
        plain += reply(words) + "\n";
        escaped += GetParam().front + Json(words).dump(-1, ' ', true) + GetParam().back + "\n";
    }
    EXPECT_EQ(textsOf(plain), scripts);
    EXPECT_EQ(textsOf(escaped), scripts);
}

TEST_P(LineAgent, BytesThatAreNoTextSpoilTheirLineOnly) {
    EXPECT_EQ(textsOf(GetParam().front + std::string("\"a\xFF\"") + GetParam().back + "\n" +
                      reply("Two.") + "\n"),
              std::vector<std::string>{"Two."});
}

TEST_P(LineAgent, NestingWithoutEndSpoilsItsLineOnly) {
    EXPECT_EQ(textsOf(std::string(200000, '[') + "\n" + reply("Two.") + "\n"),
              std::vector<std::string>{"Two."});
}

INSTANTIATE_TEST_SUITE_P(Agents, LineAgent, testing::ValuesIn(lineAgents), [](const auto& agent) {
    std::string name = agent.param.source;
    std::erase(name, '-');
    return name;
});

class ClineDocument : public testing::TestWithParam<bool> {
  protected:
    std::vector<std::string> textsOf(const std::string& messages) {
        const test::TempDir dir;
        const std::string array = "[" + messages + "]";
        test::writeFile(dir / "s.json", GetParam() ? R"({"messages":)" + array + "}" : array);
        std::vector<std::string> texts;
        const auto& reader = *LiveTailReaderRegistry::reader("cline");
        for (const auto& record :
             reader.readSince(dir / "s.json", TailOffset::messageIndex(0)).records)
            if (const auto message = reader.parser().parse(record)) texts.push_back(message->text);
        return texts;
    }
    static std::string reply(const std::string& words) {
        return R"({"role":"assistant","content":)" + Json(words).dump() + "}";
    }
};

TEST_P(ClineDocument, TextsInEveryScriptAndOfAMegabyteAreRead) {
    auto expected = scripts;
    expected.emplace_back(std::size_t{1} << 20U, 'x');
    std::string messages;
    for (const auto& words : expected) messages += (messages.empty() ? "" : ",\r\n") + reply(words);
    EXPECT_EQ(textsOf(messages), expected);
}

TEST_P(ClineDocument, UnknownMessagesYieldNothingAndBreakNothing) {
    EXPECT_EQ(textsOf(R"({},{"role":7},{"role":"assistant"},{"role":"assistant","content":7},)"
                      R"({"role":"of tomorrow","content":"x"},)" +
                      reply("One.")),
              std::vector<std::string>{"One."});
}

INSTANTIATE_TEST_SUITE_P(Shapes, ClineDocument, testing::Bool());

}  // namespace
}  // namespace sonra
