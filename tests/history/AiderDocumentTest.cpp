#include "history/AiderDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>

#include "history/MessageCounter.h"
#include "history/SessionHistory.h"
#include "ingest/AiderChatReader.h"
#include "ingest/LiveTailReaderRegistry.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

const std::string preamble = "# aider chat started at 2026-05-03 07:59:00\n\n> v0.86  \n";

class AiderHistory : public testing::Test {
  protected:
    void write(const std::string& content) const { test::writeFile(path, content); }

    /// What following the file from its start gives, once it is quiet.
    std::vector<HistoryMessage> followed() const {
        const auto& reader = *LiveTailReaderRegistry::reader("aider");
        std::vector<HistoryMessage> messages;
        for (const auto& record : reader.readSince(path, TailOffset::byte(0)).records)
            if (auto message = reader.parser().parse(record))
                messages.push_back(*std::move(message));
        return messages;
    }
    std::vector<HistoryMessage> paged() const {
        SessionHistory history(path, HistorySource::aider);
        while (!history.loadOlder(2).empty()) {
        }
        EXPECT_TRUE(history.isExhausted());
        auto messages = history.loadedMessages();
        std::ranges::reverse(messages);
        return messages;
    }
    static std::vector<std::string> texts(const std::vector<HistoryMessage>& messages) {
        std::vector<std::string> result;
        for (const auto& message : messages) result.push_back(message.text);
        return result;
    }
    using Texts = std::vector<std::string>;

    test::TempDir dir;
    const std::string path = dir / ".aider.chat.history.md";
};

TEST_F(AiderHistory, IsReadAsAWholeNewestFirst) {
    write(preamble +
          "\n#### 2026-05-03 08:00:00\n> go\n\n#### aider response\nOne.\n"
          "\n#### aider response\nTwo.\n\n#### 2026-05-03 08:05:00\n#### aider response\nTwo.\n");
    SessionHistory history(path, HistorySource::aider);
    EXPECT_TRUE(history.canPageHistory());
    EXPECT_FALSE(history.isExhausted());
    EXPECT_TRUE(history.loadOlder(0).empty());
    const auto newest = history.loadOlder(1);
    ASSERT_EQ(newest.size(), 1U);
    EXPECT_EQ(newest[0].messageId, md5Prefix16("2026-05-03 08:05:00Two."));
    EXPECT_EQ(texts(history.loadOlder(9)), (Texts{"Two.", "One."}));
    EXPECT_TRUE(history.isExhausted());
}

TEST_F(AiderHistory, HasTheIdsOfFollowing) {
    write(preamble +
          "\n#### 2026-05-03 08:00:00\n> go\n\n#### aider response\nOne.\n\n#### Heading\n"
          "lost\n\n#### 2026-05-03 08:05:00 \n#### AIDER response\nTwo.\n");
    EXPECT_EQ(paged().size(), 2U);
    EXPECT_EQ(paged(), followed());
}

TEST_F(AiderHistory, AsItIsWrittenTodayHasTheIdsOfFollowing) {
    write(preamble + "\n#### go  \n\nOne.\n\n> Tokens  \n\n#### go on  \n\nOne.\n\nAnd two.\n\n##");
    const auto messages = paged();
    EXPECT_EQ(texts(messages), (Texts{"One.", "One.\n\nAnd two."}));
    // Files of this moment aren't quiet yet: the user's line has ended the first reply only.
    const auto heard = followed();
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], messages[0]);
}

TEST_F(AiderHistory, IsCounted) {
    write(preamble + "\n#### go  \n\nOne.\n\n#### go on  \n\nOne.\n");
    const std::atomic<bool> never = false;
    const auto ids = MessageCounter::messageIds(path, HistorySource::aider, never);
    ASSERT_TRUE(ids.has_value());
    EXPECT_EQ(ids->size(), 2U);
}

TEST_F(AiderHistory, DoesNotSeeWhatCameAfterItsConstruction) {
    write(preamble + "\n#### go  \n\nOne.\n");
    SessionHistory history(path, HistorySource::aider);
    test::appendFile(path, "\n#### go on  \n\nTwo.\n");
    EXPECT_EQ(texts(history.loadOlder(9)), Texts{"One."});
}

TEST_F(AiderHistory, OfNothingIsExhausted) {
    for (const bool isThere : {false, true}) {
        if (isThere) write("");
        SessionHistory history(path, HistorySource::aider);
        EXPECT_FALSE(history.canPageHistory());
        EXPECT_TRUE(history.isExhausted());
        EXPECT_TRUE(history.loadOlder(3).empty());
    }
}

TEST_F(AiderHistory, WithHeadingsMustBeUtf8) {
    write(preamble + "\n#### aider response\nOne \xFF.\n");
    SessionHistory history(path, HistorySource::aider);
    EXPECT_TRUE(history.canPageHistory());
    EXPECT_TRUE(history.isExhausted());
}

TEST_F(AiderHistory, OfRealTranscriptsHasTheIdsOfFollowing) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    const AiderChatReader reader(QuietFile([] { return std::chrono::system_clock::time_point{}; }));
    for (const auto& file : files) {
        std::deque<HistoryMessage> followed;
        for (const auto& record : reader.readSince(file.path, TailOffset::byte(0)).records)
            followed.push_front(*reader.parser().parse(record));
        EXPECT_EQ(aiderDocument(file.path), followed) << file.name;
    }
}

}  // namespace
}  // namespace sonra
