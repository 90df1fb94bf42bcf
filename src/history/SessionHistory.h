#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "history/BackwardLines.h"
#include "history/HistorySource.h"
#include "ingest/HistoryMessage.h"

namespace sonra {

/// Reads a session's transcript from its end towards its start and hands out the assistant's
/// messages, newest first.
///
/// It reads one block at a time and only as far back as messages are asked for, so that going back
/// a little in a long session costs little; one `loadOlder` may still take long, since a line has
/// any length and replies may lie far apart. What is appended after the construction isn't seen:
/// following a transcript is somebody else's. Not shared between threads, and used by one thread
/// at a time. It never throws and reports nothing: a file that is missing, unreadable or has
/// shrunk ends the reading.
class SessionHistory {
  public:
    static constexpr std::size_t defaultChunkBytes = 65536;

    /// Reads `chunkBytes` at a time, and at least 1024.
    SessionHistory(std::string transcript, HistorySource source,
                   std::size_t chunkBytes = defaultChunkBytes);

    /// The next up to `limit` messages, newest first; fewer when the transcript has no more of
    /// them. None if `limit` is below 1.
    std::vector<HistoryMessage> loadOlder(int limit);

    /// Everything handed out so far, newest first.
    const std::vector<HistoryMessage>& loadedMessages() const { return loadedMessages_; }
    std::size_t loadedCount() const { return loadedMessages_.size(); }
    bool isExhausted() const { return hitFileStart_ && pendingMessages_.empty(); }
    /// True if the newest message is still being written, as far as anybody can tell: it may come
    /// again with more words. Known once a message was handed out.
    [[nodiscard]] bool mayNewestChange() const;
    /// True if this agent's transcripts can be paged and this one isn't empty. Whether there is
    /// more to page is what `isExhausted` says.
    bool canPageHistory() const { return canPageHistory_; }

    /// The first 8 bytes of the MD5 digest of `text` as 16 lower-case hexadecimal digits.
    static std::string md5Prefix16(std::string_view text);

  private:
    void readBackward(std::size_t maxMessages);
    /// Reads one block; false if it couldn't.
    bool readMoreBackward();
    bool endReading();
    /// Takes the lines of a block, newest first, and carries what may be the end of one.
    void takeBlock(std::string block);
    void takeLine(std::string line);
    /// The start of a line, and behind it what was carried.
    std::string joinedWithCarry(std::string_view start);

    const std::string transcript_;
    /// Null if there are none to read: the whole transcript was, or can't be.
    const std::unique_ptr<BackwardLines> lines_;
    const std::size_t chunkBytes_;
    const std::uint64_t fileSize_;
    const bool canPageHistory_;

    std::uint64_t nextReadEnd_;
    /// A line whose start isn't read yet: its pieces, the last of them first. They are joined once,
    /// when the start comes, since a line may go over a thousand blocks.
    std::vector<std::string> carryHead_;
    std::deque<HistoryMessage> pendingMessages_;
    std::vector<HistoryMessage> loadedMessages_;
    bool hitFileStart_;
};

}  // namespace sonra
