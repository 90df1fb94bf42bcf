#include "ingest/OpenCodePartsReader.h"

#include <algorithm>
#include <filesystem>
#include <span>
#include <system_error>
#include <tuple>
#include <utility>

#include "ingest/FileTail.h"
#include "ingest/OpenCodePart.h"
#include "ingest/OpenCodeReader.h"
#include "ingest/RecordTexts.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using File = OpenCodeReader::MessageFile;

/// A session writes one message after the other, so that parts come only to the last of them.
constexpr std::size_t openMessages = 8;
/// So many messages without parts make it a session that has none.
constexpr std::size_t mostNamesLookedAt = 64;

/// Where the parts of all messages lie, seen from the directory of a session's messages.
fs::path partsRoot(const std::string& url) {
    fs::path session(url);
    if (!session.has_filename()) session = session.parent_path();
    return session.parent_path().parent_path() / "part";
}

std::vector<File> partFiles(const fs::path& parts, const File& message) {
    const auto dir = parts / fs::path(message.path).stem();
    auto files = OpenCodeReader::messageFiles(dir.string()).value_or(std::vector<File>{});
    std::ranges::sort(files, {}, &File::path);
    return files;
}

/// Oldest first.
std::optional<std::vector<File>> messagesIn(const std::string& url) {
    auto files = OpenCodeReader::messageFiles(url);
    if (files) std::ranges::stable_sort(*files, {}, &File::modifiedMs);
    return files;
}

std::span<const File> lastOf(const std::vector<File>& messages) {
    const std::span<const File> all(messages);
    return all.last(std::min(all.size(), openMessages));
}

std::string idOf(const Json& object, const File& file) {
    auto id = RecordTexts::textOrEmpty(object, "id");
    return id.empty() ? fs::path(file.path).stem().string() : id;
}

/// One reading of a session.
class PartsLook {
  public:
    PartsLook(fs::path parts, std::int64_t cursor, std::int64_t nowMs)
        : parts_(std::move(parts)), cursor_(cursor), newest_(cursor), nowMs_(nowMs) {}

    /// False of a file that may be half-written. One from the future isn't waited for.
    bool isSettled(const File& file) const {
        const auto age = nowMs_ - file.modifiedMs;
        return age >= OpenCodePartsReader::moment.count() || age < -1000;
    }

    void lookAt(const File& message) {
        const auto parts = partFiles(parts_, message);
        const bool isChanged = isNew(message);
        if (!isChanged && std::ranges::none_of(parts, [&](const File& f) { return isNew(f); }))
            return;
        const auto whole = FileTail::read(message.path, 0);
        const auto object = whole ? json::parseObject(whole->bytes()) : std::nullopt;
        if (!object) {
            isWaiting_ = isWaiting_ || isWaitedFor(message);
            return;
        }
        // Only now: the cursor can't go back to the parts of a message that is whole later.
        see(message);
        for (const auto& part : parts) see(part);
        auto record = TranscriptRecord::jsonl(std::string(whole->bytes()));
        if (OpenCodeParser().parse(record)) {
            if (isChanged) add(message.modifiedMs, message.path, std::move(record));
        } else if (OpenCodePart::isReply(*object)) {
            takeParts(*object, message, parts);
        }
    }

    LiveTailReader::Reading finish() {
        if (isWaiting_) return {{}, TailOffset::unixMs(cursor_)};
        std::ranges::sort(found_, {}, [](const Found& f) { return std::tie(f.timeMs, f.path); });
        std::vector<TranscriptRecord> records;
        for (auto& found : found_) records.push_back(std::move(found.record));
        return {std::move(records), TailOffset::unixMs(newest_)};
    }

  private:
    struct Found {
        std::int64_t timeMs;
        std::string path;
        TranscriptRecord record;
    };

    bool isWaitedFor(const File& file) const {
        const auto age = nowMs_ - file.modifiedMs;
        return age >= -1000 && std::chrono::milliseconds(age) < OpenCodePartsReader::patience;
    }
    bool isNew(const File& file) const { return file.modifiedMs > cursor_ && isSettled(file); }
    void see(const File& file) {
        if (isSettled(file)) newest_ = std::max(newest_, file.modifiedMs);
    }
    void add(std::int64_t timeMs, std::string path, TranscriptRecord record) {
        found_.push_back({timeMs, std::move(path), std::move(record)});
    }

    void takeParts(const Json& object, const File& message, const std::vector<File>& parts) {
        bool isFirst = true;
        for (const auto& file : parts) {
            const auto whole = FileTail::read(file.path, 0);
            const auto part = whole ? json::parseObject(whole->bytes()) : std::nullopt;
            const auto words = part ? OpenCodePart::words(*part) : std::nullopt;
            if (!words) continue;
            const auto id = isFirst ? idOf(object, message) : idOf(*part, file);
            isFirst = false;
            const auto timeMs = completionOf(*part, file, object, message);
            if (timeMs > cursor_ && isSettled(file))
                add(*timeMs, file.path, OpenCodePartParser::recordOf(id, *words));
        }
    }

    /// When the file was written that says that the part is complete.
    static std::optional<std::int64_t> completionOf(const Json& part, const File& partFile,
                                                    const Json& message, const File& messageFile) {
        if (OpenCodePart::endedAt(part)) return partFile.modifiedMs;
        if (!OpenCodePart::completedAt(message)) return std::nullopt;
        return std::max(partFile.modifiedMs, messageFile.modifiedMs);
    }

    const fs::path parts_;
    const std::int64_t cursor_;
    std::int64_t newest_;
    const std::int64_t nowMs_;
    bool isWaiting_ = false;
    std::vector<Found> found_;
};

}  // namespace

bool OpenCodePartsReader::recognises(const std::string& url) const {
    const auto parts = partsRoot(url);
    std::error_code error;
    if (!fs::is_directory(parts, error)) return false;
    fs::directory_iterator entry(url, error);
    if (error) return false;
    std::size_t looked = 0;
    for (const fs::directory_iterator end; entry != end; entry.increment(error)) {
        if (looked++ == mostNamesLookedAt) return false;
        if (fs::is_directory(parts / entry->path().stem(), error)) return true;
    }
    return false;
}

TailOffset OpenCodePartsReader::initialOffset(const std::string& url) const {
    const auto messages = messagesIn(url);
    if (!messages || messages->empty()) return TailOffset::unixMs(0);
    const auto parts = partsRoot(url);
    std::int64_t newest = messages->back().modifiedMs;
    for (const auto& message : lastOf(*messages))
        for (const auto& part : partFiles(parts, message))
            newest = std::max(newest, part.modifiedMs);
    return TailOffset::unixMs(newest);
}

LiveTailReader::Reading OpenCodePartsReader::readSince(const std::string& url,
                                                       TailOffset offset) const {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(clock_());
    const auto messages = messagesIn(url);
    if (!messages) return {{}, offset};
    PartsLook look(partsRoot(url), offset.intValue(), now.time_since_epoch().count());
    // A message that is being written would hide what its parts are.
    if (!std::ranges::all_of(*messages, [&](const File& f) { return look.isSettled(f); }))
        return {{}, offset};
    const auto open = lastOf(*messages);
    for (const auto& message : *messages) {
        if (message.modifiedMs > offset.intValue() || &message >= open.data()) look.lookAt(message);
    }
    return look.finish();
}

}  // namespace sonra
