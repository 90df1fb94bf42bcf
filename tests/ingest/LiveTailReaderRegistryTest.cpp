#include "ingest/LiveTailReaderRegistry.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

TEST(LiveTailReaderRegistry, FindsTheReaderOfClaudeCode) {
    const LiveTailReader* reader = LiveTailReaderRegistry::reader("claude-code");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->id(), "claude-code");
    EXPECT_EQ(reader->parser().id(), "claude-code");
}

TEST(LiveTailReaderRegistry, FindsTheReadersOfOtherAgents) {
    for (const auto* source : {"codex", "aider", "gemini", "cline", "opencode", "pi"}) {
        const LiveTailReader* reader = LiveTailReaderRegistry::reader(source);
        ASSERT_NE(reader, nullptr) << source;
        EXPECT_EQ(reader->id(), source);
        EXPECT_EQ(reader->parser().id(), source);
    }
}

TEST(LiveTailReaderRegistry, KnowsNoUnknownSource) {
    for (const auto* source : {"", "claude", "Claude-Code", "claude-code ", "nobody"})
        EXPECT_EQ(LiveTailReaderRegistry::reader(source), nullptr) << source;
}

TEST(LiveTailReaderRegistry, FindsEachOfItsReadersById) {
    ASSERT_FALSE(LiveTailReaderRegistry::all().empty());
    for (const auto* reader : LiveTailReaderRegistry::all())
        EXPECT_EQ(LiveTailReaderRegistry::reader(reader->id()), reader);
}

}  // namespace
}  // namespace sonra
