#include "control/PreviousMessage.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

class PreviousMessage : public testing::Test {
  protected:
    /// The id of what is found; empty for nothing.
    [[nodiscard]] std::string seed(const std::string& source = "claude-code") const {
        const auto found = previousMessageToSeed(transcript, source);
        return found ? found->messageId : "";
    }
    void say(const std::string& id, const std::string& text) const {
        test::appendFile(transcript, test::assistantLine(id, text));
    }

    test::TempDir directory;
    std::string transcript = directory / "t.jsonl";
};

TEST_F(PreviousMessage, IsTheLastAsItWasWritten) {
    say("m1", "This was said long before");
    say("m2", "And **this** one last");
    test::appendFile(transcript, test::userLine("what the user says doesn't count"));
    EXPECT_EQ(seed(), "m2");
    EXPECT_EQ(previousMessageToSeed(transcript, "claude-code")->text, "And **this** one last");
}

TEST_F(PreviousMessage, AnEmptyOrMissingTranscriptGivesNothing) {
    EXPECT_EQ(seed(), "");
    test::writeFile(transcript, "");
    EXPECT_EQ(seed(), "");
}

TEST_F(PreviousMessage, WhatCleansToUnderTenCharactersGivesNothing) {
    say("m1", "This is long enough to be said");
    say("m2", "**Done it.** ![a picture that vanishes](https://example.org/p.png)");
    EXPECT_EQ(seed(), "");
    say("m3", "123456789");
    EXPECT_EQ(seed(), "");
    say("m4", "1234567890");
    EXPECT_EQ(seed(), "m4");
}

TEST_F(PreviousMessage, AnUnknownAgentGivesNothing) {
    say("m1", "This is long enough to be said");
    EXPECT_EQ(seed("garbage"), "");
    EXPECT_EQ(seed(), "m1");
}

}  // namespace
}  // namespace sonra
