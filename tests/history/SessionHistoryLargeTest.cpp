// Transcripts that are too large to be read whole.
#include <gtest/gtest.h>
#include <malloc.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "history/SessionHistory.h"
#include "support/TempDir.h"
#include "support/TranscriptLines.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SONRA_SANITIZED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SONRA_SANITIZED
#endif
#ifdef SONRA_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace sonra {
namespace {

constexpr std::size_t mega = 1UL << 20;
constexpr std::size_t longLine = 60 * mega;

/// Bytes that the program holds from the allocator.
std::size_t allocated() {
#ifdef SONRA_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
#endif
}

/// Bytes that this thread has read from files so far.
std::uint64_t bytesRead() {
    std::ifstream counters("/proc/thread-self/io");
    std::string name;
    std::uint64_t count = 0;
    while (counters >> name >> count)
        if (name == "rchar:") return count;
    ADD_FAILURE() << "the kernel doesn't count what is read";
    return 0;
}

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::vector<std::string> ids(const std::vector<HistoryMessage>& messages) {
    std::vector<std::string> result;
    for (const auto& message : messages) result.push_back(message.messageId);
    return result;
}

using PageIds = std::vector<std::string>;

class SessionHistoryLargeTest : public testing::Test {
  protected:
    static std::string replies(const std::string& prefix, int count) {
        std::string lines;
        for (int i = 1; i <= count; ++i)
            lines += test::assistantLine(prefix + std::to_string(i), "Reply " + std::to_string(i));
        return lines;
    }
    /// Two replies, one line of 60 MB, two replies.
    void writeAround(const std::string& line) {
        std::ofstream(path_, std::ios::binary) << replies("old", 2) << line << replies("new", 2);
        ASSERT_GT(std::filesystem::file_size(path_), longLine);
    }
    [[nodiscard]] SessionHistory open(std::size_t chunkBytes) const {
        return {path_, HistorySource::claudeCode, chunkBytes};
    }

    const test::TempDir dir_;
    const std::string path_ = dir_ / "session.jsonl";
};

/// The least pieces: a line that were joined anew with each of them would take minutes.
TEST_F(SessionHistoryLargeTest, ALineOfSixtyMegabytesIsReadInPiecesAndJoinedOnce) {
    writeAround(test::userLine(std::string(longLine, 'x')));
    auto history = open(1024);
    const double start = processorSeconds();
    EXPECT_EQ(ids(history.loadOlder(3)), (PageIds{"new2", "new1", "old2"}));
    EXPECT_EQ(ids(history.loadOlder(3)), (PageIds{"old1"}));
    EXPECT_LT(processorSeconds() - start, 20);
    EXPECT_TRUE(history.isExhausted());
}

TEST_F(SessionHistoryLargeTest, MemoryFallsBackAfterALongLine) {
    writeAround(test::userLine(std::string(longLine, 'x')));
    auto history = open(SessionHistory::defaultChunkBytes);
    EXPECT_EQ(ids(history.loadOlder(2)), (PageIds{"new2", "new1"}));
    const auto before = allocated();
    EXPECT_EQ(ids(history.loadOlder(2)), (PageIds{"old2", "old1"}));
    EXPECT_LT(allocated(), before + mega);
}

/// What is handed out is all that is kept of a reply that long.
TEST_F(SessionHistoryLargeTest, AReplyOfSixtyMegabytesIsHandedOutWhole) {
    writeAround(test::assistantLine("long", std::string(longLine, 'x')));
    auto history = open(SessionHistory::defaultChunkBytes);
    const auto before = allocated();
    {
        const auto page = history.loadOlder(4);
        ASSERT_EQ(ids(page), (PageIds{"new2", "new1", "long", "old2"}));
        EXPECT_EQ(page[2].text.size(), longLine);
    }
    EXPECT_LT(allocated(), before + longLine + mega);
    EXPECT_EQ(ids(history.loadOlder(4)), (PageIds{"old1"}));
}

TEST_F(SessionHistoryLargeTest, TheLastPageOfTwoHundredMegabytesReadsLittle) {
    constexpr std::uintmax_t size = 200 * mega;
    test::writeFile(path_, replies("old", 2));
    // A hole, that takes no room on the disk; its end is the start of a line.
    std::filesystem::resize_file(path_, size);
    test::appendFile(path_, "\n" + replies("new", 40));
    auto history = open(SessionHistory::defaultChunkBytes);
    const auto start = bytesRead();
    const auto page = history.loadOlder(16);
    const auto read = bytesRead() - start;
    ASSERT_EQ(page.size(), 16U);
    EXPECT_EQ(page.front().messageId, "new40");
    EXPECT_EQ(page.back().messageId, "new25");
    EXPECT_GE(read, 16 * page.front().text.size()) << "nothing was counted";
    EXPECT_LE(read, 2 * SessionHistory::defaultChunkBytes);
    EXPECT_FALSE(history.isExhausted());
}

TEST_F(SessionHistoryLargeTest, EachPageOfALongTranscriptReadsOnlyItsOwnBlocks) {
    constexpr std::size_t lineLength = 20'000;
    constexpr int pages = 10;
    constexpr int pageSize = 16;
    {
        std::ofstream file(path_, std::ios::binary);
        for (int i = 0; i < 400; ++i)
            file << test::assistantLine("m" + std::to_string(i), std::string(lineLength, 'x'));
    }
    auto history = open(SessionHistory::defaultChunkBytes);
    const auto start = bytesRead();
    for (int page = 0; page < pages; ++page)
        ASSERT_EQ(history.loadOlder(pageSize).size(), static_cast<std::size_t>(pageSize));
    const auto handedOut = static_cast<std::uint64_t>(pages * pageSize) * (lineLength + 200);
    EXPECT_LE(bytesRead() - start, handedOut + 2 * SessionHistory::defaultChunkBytes);
}

}  // namespace
}  // namespace sonra
