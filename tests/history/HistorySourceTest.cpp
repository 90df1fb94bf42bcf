#include "history/HistorySource.h"

#include <gtest/gtest.h>

#include "frame/HarnessTheme.h"

namespace sonra {
namespace {

TEST(HistorySource, KnowsWhichAgentsCanBeReadBackward) {
    const auto isBackward = [](std::string_view id) {
        return hasBackwardReader(historySource(id).value());
    };
    EXPECT_TRUE(isBackward("claude-code"));
    EXPECT_TRUE(isBackward("codex"));
    EXPECT_TRUE(isBackward("gemini"));
    EXPECT_FALSE(isBackward("opencode"));
    EXPECT_TRUE(isBackward("aider"));
    EXPECT_FALSE(isBackward("cline"));
    EXPECT_TRUE(isBackward("pi"));
}

TEST(HistorySource, IsNamedByTheIdsOfSessions) {
    for (const auto& theme : HarnessTheme::all()) {
        const auto source = historySource(theme.id);
        ASSERT_TRUE(source.has_value()) << theme.id;
        EXPECT_EQ(rawValue(*source), theme.id);
    }
    EXPECT_EQ(historySource("claude-code"), HistorySource::claudeCode);
    EXPECT_EQ(historySource("pi"), HistorySource::pi);
    EXPECT_EQ(historySource("Claude-Code"), std::nullopt);
    EXPECT_EQ(historySource(""), std::nullopt);
}

}  // namespace
}  // namespace sonra
