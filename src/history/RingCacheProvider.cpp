#include "history/RingCacheProvider.h"

#include <sys/stat.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "frame/Home.h"
#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "platform/MainLoop.h"

namespace sonra {
namespace {

constexpr std::size_t loggedIdLength = 8;
constexpr auto copyFailed = "ring copy failed; message will be cold on replay";

Json shortId(const std::string& messageId) {
    return {{"messageId", text::prefix(messageId, loggedIdLength)}};
}

}  // namespace

std::string RingCacheProvider::defaultRingDir() {
    return sharedDirectory() + "/history-ring";
}

std::int64_t RingCacheProvider::defaultFileSizer(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

RingCacheProvider::RingCacheProvider(MainLoop& loop, Config config, FileSizer fileSizer)
    : loop_(loop),
      config_(std::move(config)),
      fileSizer_(std::move(fileSizer)),
      log_(Log::shared().child({{"class", "RingCacheProvider"}})),
      directory_(RingDirectory::prepare(config_.ringDir)),
      self_(std::make_shared<RingCacheProvider*>(this)) {}

RingCacheProvider::~RingCacheProvider() = default;

std::optional<AudioChunk> RingCacheProvider::store(const std::string& messageId,
                                                   const AudioChunk& chunk) {
    // The audio queue unlinks what is ephemeral. Other files may be anybody's, who may change them.
    const auto taking = chunk.ephemeral ? RingDirectory::Taking::link : RingDirectory::Taking::copy;
    return keep(messageId, chunk, taking);
}

std::optional<AudioChunk> RingCacheProvider::adopt(const std::string& messageId,
                                                   const AudioChunk& chunk) {
    return keep(messageId, chunk, RingDirectory::Taking::move);
}

std::optional<AudioChunk> RingCacheProvider::keep(const std::string& messageId,
                                                  const AudioChunk& chunk,
                                                  RingDirectory::Taking taking) {
    SONRA_ASSERT_MAIN_THREAD();
    ++ringChunkSeq_;
    auto durable = chunk;
    durable.ephemeral = false;
    try {
        durable.url = directory_->take(chunk.url, messageId, ringChunkSeq_, taking,
                                       whenBroken(messageId, clearings_, ringChunkSeq_));
    } catch (const std::system_error& error) {
        log_.error(copyFailed, error, {{"input", shortId(messageId)}});
        return std::nullopt;
    }
    appendToHot(messageId, durable);
    enforceBounds(messageId);
    return durable;
}

void RingCacheProvider::appendToHot(const std::string& messageId, AudioChunk durable) {
    totalBytes_ += fileSizer_(durable.url);
    hotRing_[messageId].push_back(std::move(durable));
    std::erase(messageIdOrder_, messageId);
    messageIdOrder_.push_back(messageId);
}

void RingCacheProvider::enforceBounds(const std::string& justStored) {
    const auto most = static_cast<std::size_t>(std::max(config_.maxMessages, 1));
    while (messageIdOrder_.size() > most) evictOldest(justStored);
    while (totalBytes_ > config_.maxBytes && messageIdOrder_.size() >= 2) evictOldest(justStored);
}

/// The message that is being stored stays, however large it grows.
void RingCacheProvider::evictOldest(const std::string& justStored) {
    const bool isFirst = messageIdOrder_.front() == justStored;
    const auto oldest = messageIdOrder_[isFirst ? 1 : 0];
    evict(oldest);
}

void RingCacheProvider::evict(const std::string& messageId) {
    std::erase(messageIdOrder_, messageId);
    const auto chunks = std::move(hotRing_.extract(messageId).mapped());
    totalBytes_ = std::max<std::int64_t>(totalBytes_ - sizeOf(chunks), 0);
    discardFiles(messageId, chunks);
    log_.info("evicted message from hot ring",
              {{"input", shortId(messageId)}, {"result", {{"remaining", messageIdOrder_.size()}}}});
}

/// Different ids may share a directory ("a/b" and "a_b"): then only this message's files go.
void RingCacheProvider::discardFiles(const std::string& messageId,
                                     const std::vector<AudioChunk>& chunks) {
    const auto name = RingDirectory::nameFor(messageId);
    const bool shared = std::ranges::any_of(
        messageIdOrder_, [&](const auto& other) { return RingDirectory::nameFor(other) == name; });
    if (!shared) return directory_->discard(messageId);
    for (const auto& chunk : chunks) directory_->discardFile(chunk.url);
}

/// What to do when a copy that was promised can't be finished. Called on the copying thread.
std::function<void()> RingCacheProvider::whenBroken(const std::string& messageId, int clearings,
                                                    std::int64_t number) {
    return [&loop = loop_, self = std::weak_ptr(self_), messageId, clearings, number] {
        loop.post([self, messageId, clearings, number] {
            const auto ring = self.lock();
            if (ring && (*ring)->clearings_ == clearings) (*ring)->dropBroken(messageId, number);
        });
    };
}

void RingCacheProvider::dropBroken(const std::string& messageId, std::int64_t number) {
    log_.error(copyFailed, {{"input", shortId(messageId)}});
    const auto hot = hotRing_.find(messageId);
    if (hot == hotRing_.end()) return;
    const auto name = "/" + std::to_string(number) + ".wav";
    std::erase_if(hot->second, [&](const AudioChunk& chunk) { return chunk.url.ends_with(name); });
    if (hot->second.empty()) {
        hotRing_.erase(hot);
        std::erase(messageIdOrder_, messageId);
        discardFiles(messageId, {});
    }
    totalBytes_ = 0;
    for (const auto& [id, chunks] : hotRing_) totalBytes_ += sizeOf(chunks);
}

std::int64_t RingCacheProvider::sizeOf(const std::vector<AudioChunk>& chunks) const {
    std::int64_t bytes = 0;
    for (const auto& chunk : chunks) bytes += fileSizer_(chunk.url);
    return bytes;
}

void RingCacheProvider::clearAll() {
    SONRA_ASSERT_MAIN_THREAD();
    hotRing_.clear();
    messageIdOrder_.clear();
    totalBytes_ = 0;
    ringChunkSeq_ = 0;
    ++clearings_;
    directory_->discardAll();
}

std::optional<std::vector<AudioChunk>> RingCacheProvider::cachedChunks(
    const std::string& messageId) const {
    SONRA_ASSERT_MAIN_THREAD();
    const auto hot = hotRing_.find(messageId);
    if (hot == hotRing_.end()) return std::nullopt;
    return hot->second;
}

void RingCacheProvider::resolveChunks(Request request) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!request.isCurrent(request.generation)) return;
    // A copy, since what is called back may store or clear.
    const auto chunks = cachedChunks(request.ref.messageId).value_or(std::vector<AudioChunk>());
    for (const auto& chunk : chunks) {
        if (!request.isCurrent(request.generation)) return;
        request.onChunk(chunk);
    }
    if (request.isCurrent(request.generation)) request.onDone();
}

}  // namespace sonra
