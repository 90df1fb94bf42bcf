#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <ostream>
#include <utility>

#include "ingest/ClaudeCodeAgentReader.h"
#include "ingest/ClaudeCodeReader.h"
#include "ingest/ClineMessagesReader.h"
#include "ingest/ClineReader.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexReader.h"
#include "ingest/FileTime.h"
#include "ingest/GeminiLinesReader.h"
#include "ingest/GeminiReader.h"
#include "ingest/GoldenMessages.h"
#include "ingest/LiveTailReaderRegistry.h"
#include "ingest/PiReader.h"
#include "ingest/ShapedReader.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

/// Real transcripts of Codex, Gemini, Cline and Pi.
namespace sonra {
namespace {

constexpr std::size_t step = 1000;

/// All files have been quiet for long.
QuietFile alwaysQuiet() {
    return QuietFile([] { return std::chrono::system_clock::time_point{}; });
}

/// This one has just been written to.
QuietFile neverQuiet(const std::string& path) {
    return QuietFile([path] { return test::writtenAt(path); });
}

/// Codex in both its shapes, as it is registered.
std::unique_ptr<const LiveTailReader> codexToday(QuietFile quiet) {
    std::vector<std::unique_ptr<const ShapeReader>> shapes;
    shapes.push_back(std::make_unique<const CodexItemsReader>(std::move(quiet)));
    return std::make_unique<const ShapedReader>(std::make_unique<const CodexReader>(),
                                                std::move(shapes));
}

/// What `reader` finds in all transcripts of the agent, from their beginning.
Json found(const LiveTailReader& reader, const std::string& agent, const std::string& extension) {
    Json all = Json::object();
    for (const auto& file : test::transcripts(agent, extension)) {
        const auto start = TailOffset::of(reader.initialOffset(file.path).kind(), 0);
        all[file.name] = test::summaryOf(test::followed(reader, file.path, start));
    }
    return all;
}

/// The file as its agent might have written it: a thousand bytes at a time, looked at after each,
/// and once more when it has been quiet.
std::vector<HistoryMessage> readGrowing(const LiveTailReader& busy, const LiveTailReader& quiet,
                                        const std::string& path, const std::string& copy) {
    const std::string content = test::readFile(path);
    std::ofstream growing(copy, std::ios::binary);
    std::vector<HistoryMessage> messages;
    TailOffset cursor = TailOffset::byte(0);
    for (std::size_t at = 0; at < content.size(); at += step) {
        growing << content.substr(at, step) << std::flush;
        test::follow(busy, copy, cursor, messages);
    }
    test::follow(quiet, copy, cursor, messages);
    return messages;
}

struct Golden {
    const char* name;
    const LiveTailReader* reader;
    const char* agent;
    const char* extension;
};

void PrintTo(const Golden& golden, std::ostream* out) {
    *out << golden.name;
}

class AgentGolden : public testing::TestWithParam<Golden> {};

TEST_P(AgentGolden, MessagesOfRealTranscriptsAreTheKnownOnes) {
    const auto& [name, reader, agent, extension] = GetParam();
    const auto messages = found(*reader, agent, extension);
    if (messages.empty()) GTEST_SKIP();
    test::expectGolden(std::string(name) + ".json", messages);
}

const CodexReader codex;
const auto codexItems = codexToday(alwaysQuiet());
const GeminiReader gemini;
const GeminiLinesReader geminiLines(alwaysQuiet());
const ClineMessagesReader clineMessages;
const PiReader pi;

INSTANTIATE_TEST_SUITE_P(Readers, AgentGolden,
                         testing::Values(Golden{"codex", &codex, "codex", ".jsonl"},
                                         Golden{"codex-items", codexItems.get(), "codex", ".jsonl"},
                                         Golden{"gemini-documents", &gemini, "gemini", ".json"},
                                         Golden{"gemini-lines", &geminiLines, "gemini", ".jsonl"},
                                         Golden{"cline", &clineMessages, "cline", ".json"},
                                         Golden{"pi", &pi, "pi", ".jsonl"}),
                         [](const auto& golden) {
                             std::string name = golden.param.name;
                             std::erase(name, '-');
                             return name;
                         });

TEST(AgentGoldens, CutTranscriptsGiveTheMessagesOfWholeOnes) {
    const auto start = TailOffset::byte(0);
    const test::TempDir dir;
    const auto copy = dir / "growing.jsonl";
    const auto busyCodex = codexToday(neverQuiet(copy));
    const GeminiLinesReader busyGemini(neverQuiet(copy));
    std::size_t messages = 0;
    for (const auto& file : test::transcripts("codex", ".jsonl")) {
        const auto whole = test::followed(*codexItems, file.path, start);
        EXPECT_EQ(readGrowing(*busyCodex, *codexItems, file.path, copy), whole) << file.name;
        messages += whole.size();
    }
    for (const auto& file : test::transcripts("gemini", ".jsonl")) {
        const auto whole = test::followed(geminiLines, file.path, start);
        EXPECT_EQ(readGrowing(busyGemini, geminiLines, file.path, copy), whole) << file.name;
        messages += whole.size();
    }
    for (const auto& file : test::transcripts("pi", ".jsonl")) {
        const auto whole = test::followed(pi, file.path, start);
        EXPECT_EQ(readGrowing(pi, pi, file.path, copy), whole) << file.name;
        messages += whole.size();
    }
    if (messages == 0) GTEST_SKIP();
    EXPECT_GT(messages, 100U);
}

TEST(AgentGoldens, ShapesOfRealTranscriptsAreRecognised) {
    if (test::transcripts("gemini", ".jsonl").empty()) GTEST_SKIP();
    for (const auto& file : test::transcripts("gemini", ".jsonl"))
        EXPECT_TRUE(geminiLines.recognises(file.path)) << file.name;
    for (const auto& file : test::transcripts("gemini", ".json"))
        EXPECT_FALSE(geminiLines.recognises(file.path)) << file.name;
    for (const auto& file : test::transcripts("cline", ".json")) {
        EXPECT_TRUE(clineMessages.recognises(file.path)) << file.name;
        EXPECT_EQ(ClineReader().initialOffset(file.path), TailOffset::messageIndex(0)) << file.name;
    }
}

TEST(AgentGoldens, ADocumentThatHasGrownSaysOnlyWhatIsNew) {
    const auto files = test::transcripts("gemini", ".json");
    if (files.size() < 2) GTEST_SKIP();
    const auto before = gemini.initialOffset(files[0].path);
    EXPECT_EQ(before, TailOffset::messageIndex(3));
    EXPECT_EQ(test::followed(gemini, files[1].path, before).size(), 3U);
}

TEST(AgentGoldens, SubAgentsOfClaudeCodeSayNothing) {
    const auto start = TailOffset::byte(0);
    const auto& reader = *LiveTailReaderRegistry::reader("claude-code");
    auto files = test::transcripts("claude-code", ".jsonl");
    std::erase_if(files,
                  [](const auto& file) { return !ClaudeCodeAgentReader::isAgentFile(file.path); });
    if (files.empty()) GTEST_SKIP();
    for (const auto& file : files) {
        EXPECT_TRUE(reader.readSince(file.path, start).records.empty()) << file.name;
        EXPECT_FALSE(ClaudeCodeReader().readSince(file.path, start).records.empty()) << file.name;
    }
}

}  // namespace
}  // namespace sonra
