#include "history/SessionHistory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "history/TranscriptFile.h"
#include "history/WholeTranscript.h"
#include "ingest/GeminiReader.h"
#include "ingest/Md5.h"
#include "ingest/QuietFile.h"

namespace sonra {
namespace {

constexpr std::size_t leastChunkBytes = 1024;

/// Gemini's documents say by their name that they can be paged, whatever is in them.
bool canPage(HistorySource source, const std::string& transcript, std::uint64_t size) {
    if (!hasBackwardReader(source)) return false;
    return size > 0 || (source == HistorySource::gemini && GeminiReader::isDocument(transcript));
}

std::unique_ptr<BackwardLines> linesOf(const std::string& transcript, HistorySource source) {
    return isReadWhole(transcript, source) ? nullptr : BackwardLines::of(transcript, source);
}

/// Null if there is none. Unlike rfind it doesn't look at every byte by itself.
const char* lastLineFeed(std::string_view bytes) {
    return static_cast<const char*>(::memrchr(bytes.data(), '\n', bytes.size()));
}

}  // namespace

SessionHistory::SessionHistory(std::string transcript, HistorySource source, std::size_t chunkBytes)
    : transcript_(std::move(transcript)),
      lines_(linesOf(transcript_, source)),
      chunkBytes_(std::max(chunkBytes, leastChunkBytes)),
      fileSize_(TranscriptFile(transcript_).size()),
      canPageHistory_(canPage(source, transcript_, fileSize_)),
      nextReadEnd_(fileSize_),
      hitFileStart_(fileSize_ == 0 || lines_ == nullptr) {
    if (isReadWhole(transcript_, source)) pendingMessages_ = wholeTranscript(transcript_, source);
}

std::vector<HistoryMessage> SessionHistory::loadOlder(int limit) {
    if (limit < 1 || isExhausted()) return {};
    const auto before = static_cast<std::ptrdiff_t>(loadedMessages_.size());
    readBackward(static_cast<std::size_t>(limit));
    return {loadedMessages_.begin() + before, loadedMessages_.end()};
}

bool SessionHistory::mayNewestChange() const {
    return lines_ != nullptr && lines_->mayNewestChange() && !QuietFile().isQuiet(transcript_);
}

void SessionHistory::readBackward(std::size_t maxMessages) {
    for (std::size_t moved = 0; moved < maxMessages;) {
        if (pendingMessages_.empty()) {
            if (hitFileStart_ || !readMoreBackward()) return;
            continue;
        }
        loadedMessages_.push_back(std::move(pendingMessages_.front()));
        pendingMessages_.pop_front();
        ++moved;
    }
}

bool SessionHistory::readMoreBackward() {
    const TranscriptFile file(transcript_);
    if (!file) return endReading();
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(nextReadEnd_, chunkBytes_));
    const std::uint64_t start = nextReadEnd_ - length;
    std::string block(length, '\0');
    const auto got = file.readAt(start, block.data(), length);
    if (got == 0) return endReading();
    // A block that has lost its end isn't what the carried bytes follow.
    if (got < length) carryHead_.clear();
    block.resize(got);
    nextReadEnd_ = start;
    takeBlock(std::move(block));
    if (nextReadEnd_ == 0) lines_->finish(pendingMessages_);
    if (nextReadEnd_ == 0 || lines_->isComplete()) hitFileStart_ = true;
    return true;
}

bool SessionHistory::endReading() {
    hitFileStart_ = true;
    carryHead_.clear();
    return false;
}

void SessionHistory::takeBlock(std::string block) {
    std::string_view rest = block;
    while (const char* feed = lastLineFeed(rest)) {
        const auto length = static_cast<std::size_t>(feed - rest.data());
        takeLine(joinedWithCarry(rest.substr(length + 1)));
        rest = rest.substr(0, length);
    }
    block.resize(rest.size());
    if (nextReadEnd_ == 0) {
        takeLine(joinedWithCarry(block));
    } else {
        carryHead_.push_back(std::move(block));
    }
}

void SessionHistory::takeLine(std::string line) {
    if (line.empty()) return;
    lines_->take(std::move(line), pendingMessages_);
}

std::string SessionHistory::joinedWithCarry(std::string_view start) {
    std::size_t size = start.size();
    for (const auto& piece : carryHead_) size += piece.size();
    std::string line;
    line.reserve(size);
    line += start;
    for (; !carryHead_.empty(); carryHead_.pop_back()) line += carryHead_.back();
    return line;
}

std::string SessionHistory::md5Prefix16(std::string_view text) {
    return sonra::md5Prefix16(text);
}

}  // namespace sonra
