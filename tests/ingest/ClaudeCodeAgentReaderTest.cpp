#include "ingest/ClaudeCodeAgentReader.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ingest/LiveTailReaderRegistry.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string agentLine =
    R"({"type":"assistant","uuid":"u","message":{"content":[{"type":"text","text":"Found it."}]}})"
    "\n";

TEST(ClaudeCodeAgentReader, KnowsASubAgentsFileByItsName) {
    EXPECT_TRUE(ClaudeCodeAgentReader::isAgentFile("/p/agent-ea02459f.jsonl"));
    EXPECT_TRUE(ClaudeCodeAgentReader::isAgentFile("/p/0a1b/subagents/agent-1.jsonl"));
    EXPECT_TRUE(ClaudeCodeAgentReader::isAgentFile("/p/0a1b/subagents/other.jsonl"));
    for (const auto* own : {"/p/0a1b.jsonl", "/p/subagents.jsonl", "/p/my-agent-1.jsonl",
                            "/agent-x/0a1b.jsonl", "/p/subagents/x/0a1b.jsonl", "", "agent-1.txt"})
        EXPECT_FALSE(ClaudeCodeAgentReader::isAgentFile(own)) << own;
}

TEST(ClaudeCodeAgentReader, ASubAgentsFileIsNeverNarrated) {
    const test::TempDir dir;
    std::filesystem::create_directories(dir / "0a1b/subagents");
    const auto* reader = LiveTailReaderRegistry::reader("claude-code");
    for (const auto* name : {"agent-1.jsonl", "0a1b/subagents/agent-2.jsonl"}) {
        test::writeFile(dir / name, agentLine);
        const auto reading = reader->readSince(dir / name, TailOffset::byte(0));
        EXPECT_TRUE(reading.records.empty()) << name;
        EXPECT_EQ(reading.newOffset, TailOffset::byte(static_cast<std::int64_t>(agentLine.size())));
    }
    test::writeFile(dir / "0a1b.jsonl", agentLine);
    EXPECT_EQ(reader->readSince(dir / "0a1b.jsonl", TailOffset::byte(0)).records.size(), 1U);
}

}  // namespace
}  // namespace sonra
