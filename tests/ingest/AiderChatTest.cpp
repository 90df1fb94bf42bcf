#include "ingest/AiderChat.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using AiderChat::isWrittenSo;
using AiderChat::messageOf;

const std::string session = "\n# aider chat started at 2026-05-03 07:59:00\n\n> Aider v0.86.1  \n";

std::vector<std::string> repliesIn(const std::string& text) {
    std::vector<std::string> replies;
    for (const auto& reply : AiderChat::read(text, 0).replies) replies.push_back(reply.text);
    return replies;
}
using Texts = std::vector<std::string>;

TEST(AiderChatShape, IsKnownByAUsersLine) {
    EXPECT_TRUE(isWrittenSo(session + "\n#### fix the bug  \n"));
    EXPECT_TRUE(isWrittenSo("#### fix the bug\n"));
}

TEST(AiderChatShape, IsNotKnownBeforeTheUserSpoke) {
    EXPECT_FALSE(isWrittenSo(""));
    EXPECT_FALSE(isWrittenSo(session));
    EXPECT_FALSE(isWrittenSo(session + "\n#### fix the bu"));
    EXPECT_FALSE(isWrittenSo(session + "\n####\n#####  no\n"));
}

TEST(AiderChatShape, IsNotTheOneWithHeadings) {
    EXPECT_FALSE(isWrittenSo(session + "\n#### 2026-05-03 08:00:00\n> fix\n"));
    EXPECT_FALSE(isWrittenSo(session + "\n#### aider response\nDone.\n"));
    EXPECT_FALSE(isWrittenSo("\n#### Aider Response (2)\nDone.\n\n#### notes\n"));
    EXPECT_FALSE(isWrittenSo("#### notes\n\n#### aider response\nDone.\n"));
    EXPECT_FALSE(isWrittenSo("#### notes\n\n#### aider response (gpt-5)\nDone.\n"));
    EXPECT_FALSE(isWrittenSo("#### notes\n\n#### Aider Response: 2\nDone.\n"));
    EXPECT_FALSE(isWrittenSo("#### notes\n\n#### 2026-05-03 08:00:00\nDone.\n"));
}

TEST(AiderChatShape, StaysKnownWhenTheUserTalksOfResponses) {
    EXPECT_TRUE(isWrittenSo("#### fix the bug\n\nDone.\n\n#### aider response is slow, why?  \n"));
}

TEST(AiderChatReplies, AreWhatNeitherUserNorToolsSaid) {
    EXPECT_EQ(repliesIn(session + "\n#### fix the bug  \n#### and test  \n> Added foo.py  \n"
                                  "\nI fixed it.\n\n- one\n- two\n\n\n> Tokens: 1k sent  \n"),
              Texts{"I fixed it.\n\n- one\n- two"});
}

TEST(AiderChatReplies, KeepHeadingsOfTheirOwn) {
    EXPECT_EQ(repliesIn("#### go  \n# Plan\n## Steps\n##### Small\n####none\n"),
              Texts{"# Plan\n## Steps\n##### Small\n####none"});
}

TEST(AiderChatReplies, AreCutByTools) {
    EXPECT_EQ(repliesIn("#### go  \nFirst try.\n> Applied edit  \n>\n> \nSecond try.\n"),
              (Texts{"First try.", "Second try."}));
}

TEST(AiderChatReplies, AreCutByANewSession) {
    EXPECT_EQ(repliesIn("#### go  \nBefore.\n" + session + "\nAfter.\n"),
              (Texts{"Before.", "After."}));
}

TEST(AiderChatReplies, LoseNothingToCarriageReturns) {
    EXPECT_EQ(repliesIn("#### go  \r\n> tool  \r\n\r\nDone.\r\n\r\n"), Texts{"Done."});
}

TEST(AiderChatReplies, LeaveOutTheReportOfAFailedEdit) {
    EXPECT_EQ(repliesIn("#### go  \nFirst try.\n> # 1 SEARCH/REPLACE block failed to match!\n\n"
                        "## SearchReplaceNoExactMatch\nold code\n>>>>>>> REPLACE\n"
                        "Just reply with fixed versions.  \n\nSecond try.\n\n#### thanks  \n"),
              (Texts{"First try.", "Second try."}));
}

TEST(AiderChatReplies, LoseNothingToAReportWithoutAnEnd) {
    EXPECT_EQ(repliesIn("#### go  \n> # Quoted\nFirst.\n\n#### thanks  \nSecond.\n"),
              (Texts{"First.", "Second."}));
}

TEST(AiderChatReplies, AreEndedByTheUsersNextLine) {
    const std::string ended = "#### go  \nFirst.\n> tool  \nSecond.\n\n#### next  \n";
    const auto found = AiderChat::read(ended + "\nThird.\n> tool  \nFourth.\n", 0);
    EXPECT_EQ(found.replies.size(), 4U);
    EXPECT_EQ(found.ended, 2U);
    EXPECT_EQ(found.turn, ended.size());
}

TEST(AiderChatReplies, SayWhereTheyStand) {
    const std::string before = "#### go  \n\n";
    const auto found = AiderChat::read(before + "  Done.\n", 1000);
    ASSERT_EQ(found.replies.size(), 1U);
    EXPECT_EQ(found.replies[0].position, 1000 + static_cast<std::int64_t>(before.size()));
}

TEST(AiderChatReplies, GoOnInALineThatBeganBefore) {
    EXPECT_EQ(AiderChat::read("# fix it\nDone.\n", 9, "###").replies.front().text, "Done.");
    EXPECT_EQ(AiderChat::read(" tool\nDone.\n", 9, ">").replies.front().text, "Done.");
    EXPECT_EQ(AiderChat::read("#### not mine\nDone.\n", 9, "He said ").replies.front().text,
              "#### not mine\nDone.");
}

TEST(AiderChatReplies, MayEndInALineThatIsToBecomeAnother) {
    using AiderChat::undecidedTail;
    EXPECT_EQ(undecidedTail("Done.\n###"), 3U);
    EXPECT_EQ(undecidedTail("Done.\n>"), 1U);
    EXPECT_EQ(undecidedTail("Done.\n# aider chat"), 12U);
    EXPECT_EQ(undecidedTail("Done.\n"), 0U);
    EXPECT_EQ(undecidedTail("Done.\n# Plan"), 0U);
    EXPECT_EQ(undecidedTail("Done"), 0U);
    EXPECT_EQ(undecidedTail(""), 0U);
}

TEST(AiderChatIds, TellSameWordsInTwoPlacesApart) {
    const auto found = AiderChat::read("#### go  \nDone.\n\n#### again  \nDone.\n", 0);
    ASSERT_EQ(found.replies.size(), 2U);
    EXPECT_NE(messageOf(found.replies[0]).messageId, messageOf(found.replies[1]).messageId);
    EXPECT_NE(messageOf({7, "Done."}).messageId, messageOf({7, "Other."}).messageId);
}

TEST(AiderChatIds, DoNotDependOnWhatCameLater) {
    EXPECT_EQ(messageOf({7, "Done."}).messageId, messageOf({7, "Done.\nAnd more."}).messageId);
}

}  // namespace
}  // namespace sonra
