#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/Log.h"
#include "history/MessageChunkProvider.h"
#include "history/RingDirectory.h"

namespace sonra {

class MainLoop;

/// Keeps copies of the messages that were heard last, bounded in number and bytes: the one that
/// was stored longest ago goes first, the one that is being stored never.
///
/// Main thread only. Owns its copies, in a RingDirectory that is emptied at the start: the files
/// don't outlive the service in use. A copy that fails is logged, and its message has to be spoken
/// anew when it is visited.
class RingCacheProvider : public MessageChunkProvider {
  public:
    struct Config {
        int maxMessages = 20;
        std::int64_t maxBytes = 209715200;
        std::string ringDir = defaultRingDir();
    };
    /// Size of a file in bytes; 0 if it can't be told.
    using FileSizer = std::function<std::int64_t(const std::string& path)>;

    static std::string defaultRingDir();
    static std::int64_t defaultFileSizer(const std::string& path);

    RingCacheProvider(MainLoop& loop, Config config, FileSizer fileSizer = defaultFileSizer);
    ~RingCacheProvider() override;

    /// Copies the chunk's file and returns the chunk of the copy; the original stays the caller's.
    /// Absent if the file can't be copied.
    std::optional<AudioChunk> store(const std::string& messageId, const AudioChunk& chunk);
    /// As `store`, with a file that the ring may have: it is moved.
    std::optional<AudioChunk> adopt(const std::string& messageId, const AudioChunk& chunk);
    void clearAll();

    [[nodiscard]] std::optional<std::vector<AudioChunk>> cachedChunks(
        const std::string& messageId) const override;
    void resolveChunks(Request request) override;

    [[nodiscard]] const std::string& ringDirURL() const { return directory_->path(); }
    /// Ids by the time of the last store, oldest first.
    [[nodiscard]] const std::deque<std::string>& messageIdOrder() const { return messageIdOrder_; }
    [[nodiscard]] std::int64_t totalBytes() const { return totalBytes_; }
    /// Grows with each `clearAll`: tells work that began before it.
    [[nodiscard]] int clearings() const { return clearings_; }
    [[nodiscard]] const std::shared_ptr<RingDirectory>& directory() const { return directory_; }

  private:
    std::optional<AudioChunk> keep(const std::string& messageId, const AudioChunk& chunk,
                                   RingDirectory::Taking taking);
    void appendToHot(const std::string& messageId, AudioChunk durable);
    void enforceBounds(const std::string& justStored);
    void evictOldest(const std::string& justStored);
    void evict(const std::string& messageId);
    void discardFiles(const std::string& messageId, const std::vector<AudioChunk>& chunks);
    std::function<void()> whenBroken(const std::string& messageId, int clearings,
                                     std::int64_t number);
    void dropBroken(const std::string& messageId, std::int64_t number);
    std::int64_t sizeOf(const std::vector<AudioChunk>& chunks) const;

    MainLoop& loop_;
    const Config config_;
    const FileSizer fileSizer_;
    const Log log_;
    const std::shared_ptr<RingDirectory> directory_;
    std::map<std::string, std::vector<AudioChunk>> hotRing_;
    std::deque<std::string> messageIdOrder_;
    std::int64_t totalBytes_ = 0;
    std::int64_t ringChunkSeq_ = 0;
    int clearings_ = 0;
    std::shared_ptr<RingCacheProvider*> self_;  ///< expires with the ring
};

}  // namespace sonra
