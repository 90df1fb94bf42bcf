#include "search/Summarizer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

class SummarizerTest : public testing::Test {
  protected:
    std::string write(std::string_view content, const std::string& name = "s.jsonl") {
        auto path = dir_ / name;
        test::writeFile(path, content);
        return path;
    }
    SessionRecord summary(std::string_view content) {
        return Summarizer::summarize(write(content)).value();
    }
    std::string promptOf(std::string_view content) { return summary(content).firstUserPrompt; }
    std::string snippetOf(std::string_view content) { return summary(content).lastSnippet; }

    test::TempDir dir_;
};

std::string user(const std::string& text, const std::string& more = "") {
    return R"({"type":"user",)" + more + R"("message":{"role":"user","content":")" + text +
           "\"}}\n";
}

std::string assistant(const std::string& text, const std::string& more = "") {
    return R"({"type":"assistant",)" + more +
           R"("message":{"role":"assistant","content":[{"type":"text","text":")" + text +
           "\"}]}}\n";
}

const std::string toolCall =
    R"({"type":"assistant","message":{"role":"assistant","content":[{"type":"tool_use","name":"Bash"}]}})"
    "\n";

TEST_F(SummarizerTest, ALargeTranscriptIsBoundedByItsHeadAndTail) {
    std::string content =
        R"({"type":"user","cwd":"/Users/test/src/big","gitBranch":"feat/bounded","message":{"role":"user","content":"go"}})"
        "\n";
    for (int i = 0; i < 50'000; ++i)
        content += assistant("line of a long session, number " + std::to_string(i));
    ASSERT_GT(content.size(), 5'000'000U);
    const auto path = write(content);
    // The best of three: one may meet with a moment in which the machine has other things to do.
    auto took = std::chrono::steady_clock::duration::max();
    std::optional<SessionRecord> record;
    for (int time = 0; time < 3; ++time) {
        const auto start = std::chrono::steady_clock::now();
        record = Summarizer::summarize(path);
        took = std::min(took, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(took, std::chrono::milliseconds(200));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->cwd, "/Users/test/src/big");
    EXPECT_EQ(record->gitBranch, "feat/bounded");
    EXPECT_EQ(record->project, "big");
    EXPECT_EQ(record->lastSnippet, "line of a long session, number 49999");
    EXPECT_NEAR(static_cast<double>(record->msgCount), 50'001.0, 2500.0);
}

TEST_F(SummarizerTest, TheIdIsTheFileNameWithoutItsExtension) {
    const auto path = write(user("hi"), "abc12345-1111-1111-1111-111111111111.jsonl");
    const auto record = Summarizer::summarize(path).value();
    EXPECT_EQ(record.id, "abc12345-1111-1111-1111-111111111111");
    EXPECT_EQ(record.path, path);
    EXPECT_EQ(record.source, "claude-code");
}

TEST_F(SummarizerTest, MachineMadeWrappersArePassedOver) {
    for (const std::string wrapper :
         {"<command-name>x", "<system-reminder>x", "<local-command-stdout>x"})
        EXPECT_EQ(promptOf(user(wrapper) + user("  \\n" + wrapper) + user("the real one")),
                  "the real one");
    EXPECT_EQ(promptOf(user("<commandments> matter")), "<commandments> matter");
}

TEST_F(SummarizerTest, EmptyPromptsArePassedOver) {
    EXPECT_EQ(promptOf(user("") + user(" \\n\\t ") + user("then this")), "then this");
}

TEST_F(SummarizerTest, ASidechainsUserLineIsNeverThePrompt) {
    EXPECT_EQ(promptOf(user("not this", R"("isSidechain":true,)") + user("but this")), "but this");
    EXPECT_EQ(promptOf(user("one isn't true", R"("isSidechain":1,)")), "one isn't true");
}

TEST_F(SummarizerTest, ASidechainsReplyIsNeverTheSnippet) {
    EXPECT_EQ(snippetOf(assistant("this") + assistant("not this", R"("isSidechain":true,)")),
              "this");
}

TEST_F(SummarizerTest, TheDirectoryComesFromAnyLineAndTheBranchNotFromASidechain) {
    const auto record = summary(R"({"isSidechain":true,"cwd":"/a/side","gitBranch":"side"})"
                                "\n"
                                R"({"cwd":"/a/main","gitBranch":""})"
                                "\n"
                                R"({"gitBranch":"main"})"
                                "\n");
    EXPECT_EQ(record.cwd, "/a/side");
    EXPECT_EQ(record.gitBranch, "main");
}

TEST_F(SummarizerTest, MessagesAreCountedAndTheSizeIsExact) {
    const auto content = user("one") + assistant("two") + assistant("three");
    const auto record = summary(content);
    EXPECT_EQ(record.msgCount, 3);
    EXPECT_EQ(record.size, static_cast<std::int64_t>(content.size()));
}

TEST_F(SummarizerTest, TheCountIsScaledFromTheHead) {
    std::string content;
    while (content.size() < 4 * Summarizer::headBytes)
        content += std::string(1000, ' ') + user("x");
    const auto record = summary(content);
    const auto lines =
        static_cast<double>(content.size()) / static_cast<double>(1000 + user("x").size());
    EXPECT_NEAR(static_cast<double>(record.msgCount), lines, 5.0);
}

TEST_F(SummarizerTest, ALongPromptIsCutToTwoHundredCharacters) {
    const std::string letters(500, 'a');
    EXPECT_EQ(promptOf(user(letters)), std::string(200, 'a'));
    std::string umlauts, first;
    for (int i = 0; i < 300; ++i) umlauts += "\xC3\xA4";
    for (int i = 0; i < 200; ++i) first += "\xC3\xA4";
    EXPECT_EQ(promptOf(user(umlauts)), first);
}

TEST_F(SummarizerTest, ThePromptIsCleanedBeforeItIsCut) {
    EXPECT_EQ(promptOf(user("make **this** work, see https://example.org/a?b=c   now")),
              "make this work, see now");
    EXPECT_EQ(promptOf(user(std::string(300, '*') + "end")), "end");
}

TEST_F(SummarizerTest, APromptOfSeveralBlocksIsJoinedWithBlanks) {
    EXPECT_EQ(
        promptOf(
            R"({"type":"user","message":{"content":[{"type":"text","text":"a"},{"type":"image","text":"no"},{"type":"text","text":"b"},{"type":"text","text":7}]}})"),
        "a b");
}

TEST_F(SummarizerTest, AMissingFileGivesNoRecord) {
    EXPECT_FALSE(Summarizer::summarize(dir_ / "none.jsonl"));
    EXPECT_FALSE(Summarizer::summarize(dir_ / "none" + "/none.jsonl"));
    fs::create_symlink("nowhere", dir_ / "link.jsonl");
    EXPECT_FALSE(Summarizer::summarize(dir_ / "link.jsonl"));
}

TEST_F(SummarizerTest, WithoutADirectoryInTheHeadItIsDecodedFromTheFoldersName) {
    fs::create_directory(dir_ / "-Users-me-src-tts");
    const auto record =
        Summarizer::summarize(write("not json\n", "-Users-me-src-tts/s.jsonl")).value();
    EXPECT_EQ(record.cwd, "/Users/me/src/tts");
    EXPECT_EQ(record.project, "tts");
    EXPECT_EQ(record.firstUserPrompt, "");
    EXPECT_EQ(record.lastSnippet, "");
    EXPECT_EQ(record.msgCount, 0);
    EXPECT_EQ(record.size, 9);
}

TEST_F(SummarizerTest, TheNewestReplyWithWordsIsTheSnippet) {
    EXPECT_EQ(snippetOf(assistant("old") + assistant("newer") + toolCall + user("thanks")),
              "newer");
    EXPECT_EQ(snippetOf(assistant("old") + assistant("  ") + assistant("https://example.org")),
              "old");
    EXPECT_EQ(
        snippetOf(
            R"({"type":"assistant","message":{"content":[{"type":"text","text":" "},{"type":"text","text":" first "},{"type":"text","text":"second"}]}})"),
        "first");
    EXPECT_EQ(snippetOf(R"({"type":"assistant","message":{"content":"a string isn't a list"}})"),
              "");
}

TEST_F(SummarizerTest, ALineCutByTheHeadsLimitIsSkipped) {
    const std::string start = R"({"type":"user","message":{"content":")";
    EXPECT_EQ(promptOf(start + std::string(Summarizer::headBytes, 'x') + "\"}}\n" + user("behind")),
              "");
}

TEST_F(SummarizerTest, AHeadCutInsideACharacterHasNoTextButACount) {
    std::string content = user("first");
    content += "{\"x\":\"";
    content += std::string(Summarizer::headBytes - 1 - content.size(), 'x') + "\xC3\xA4\"}\n";
    content += assistant("last");
    const auto record = summary(content);
    EXPECT_EQ(record.firstUserPrompt, "");
    EXPECT_EQ(record.lastSnippet, "last");
    EXPECT_EQ(record.msgCount, 1);
}

TEST_F(SummarizerTest, ATailThatBeginsInsideACharacterHasNoSnippet) {
    const auto reply = assistant("reply");
    const auto padding = std::string(Summarizer::tailBytes - reply.size() - 2, ' ');
    EXPECT_EQ(snippetOf("{}\xC3\xA4" + padding + "\n" + reply), "");
    EXPECT_EQ(snippetOf("{}\xC3\xA4" + padding.substr(1) + "\n" + reply), "reply");
}

TEST_F(SummarizerTest, BadLinesAreSkipped) {
    EXPECT_EQ(promptOf("[1]\n7\n\n\r\n{\"type\":\"user\"\n{\"type\":\"user\",\"message\":7}\n" +
                       user("good")),
              "good");
    EXPECT_EQ(promptOf(R"({"type":"user","message":{"content":"crlf"}})"
                       "\r\n"),
              "crlf");
}

TEST_F(SummarizerTest, OfDuplicateKeysTheLastWins) {
    EXPECT_EQ(promptOf(R"({"type":"x","type":"user","message":{"content":"a","content":"b"}})"),
              "b");
}

TEST_F(SummarizerTest, ALoneSurrogateDoesntLoseTheLine) {
    EXPECT_EQ(promptOf(user("cut \\ud83d here")), "cut \xEF\xBF\xBD here");
    EXPECT_EQ(
        snippetOf(R"({"n":123456789012345678901234567890,)" + assistant("big numbers").substr(1)),
        "big numbers");
}

TEST_F(SummarizerTest, AnEmptyFileGivesARecord) {
    const auto record = summary("");
    EXPECT_EQ(record.size, 0);
    EXPECT_EQ(record.msgCount, 0);
}

TEST_F(SummarizerTest, WhatIsntAFileIsNeverWaitedFor) {
    ASSERT_EQ(::mkfifo((dir_ / "pipe.jsonl").c_str(), 0600), 0);
    EXPECT_EQ(Summarizer::summarize(dir_ / "pipe.jsonl").value().lastSnippet, "");
    fs::create_directory(dir_ / "folder.jsonl");
    EXPECT_EQ(Summarizer::summarize(dir_ / "folder.jsonl").value().id, "folder");
}

TEST_F(SummarizerTest, ANameThatIsntUtf8IsReadAndItsIdCanBeWritten) {
    const auto record = Summarizer::summarize(write(user("hi"), "a\xFF.jsonl")).value();
    EXPECT_EQ(record.path, dir_ / "a\xFF.jsonl");
    EXPECT_EQ(record.id, "a\xEF\x9F\xBF");
    EXPECT_EQ(record.firstUserPrompt, "hi");
}

}  // namespace
}  // namespace sonra
