#include "ingest/OpenCodeReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "ingest/FileTail.h"

namespace sonra {
namespace {

/// Whole milliseconds, cut towards zero.
std::int64_t millisecondsOf(const timespec& time) {
    const std::int64_t ms = std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
    return ms < 0 && time.tv_nsec % 1'000'000 != 0 ? ms + 1 : ms;
}

std::optional<OpenCodeReader::MessageFile> messageFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return std::nullopt;
    return OpenCodeReader::MessageFile{path, millisecondsOf(status.st_mtim)};
}

}  // namespace

std::optional<std::vector<OpenCodeReader::MessageFile>> OpenCodeReader::messageFiles(
    const std::string& dir) {
    std::error_code error;
    std::filesystem::directory_iterator entry(dir, error);
    if (error) return std::nullopt;
    std::vector<MessageFile> files;
    for (const std::filesystem::directory_iterator end; entry != end; entry.increment(error)) {
        const std::string& path = entry->path().native();
        if (!path.ends_with(".json")) continue;
        if (auto file = messageFile(path)) files.push_back(*std::move(file));
    }
    if (error) return std::nullopt;
    return files;
}

TailOffset OpenCodeReader::initialOffset(const std::string& url) const {
    const auto files = messageFiles(url);
    if (!files || files->empty()) return TailOffset::unixMs(0);
    return TailOffset::unixMs(std::ranges::max(*files, {}, &MessageFile::modifiedMs).modifiedMs);
}

LiveTailReader::Reading OpenCodeReader::readSince(const std::string& url, TailOffset offset) const {
    auto files = messageFiles(url).value_or(std::vector<MessageFile>{});
    std::erase_if(files, [&](const auto& file) { return file.modifiedMs <= offset.intValue(); });
    if (files.empty()) return {{}, offset};
    std::ranges::stable_sort(files, {}, &MessageFile::modifiedMs);
    std::vector<TranscriptRecord> records;
    for (const auto& file : files) {
        if (const auto whole = FileTail::read(file.path, 0))
            records.push_back(TranscriptRecord::jsonl(std::string(whole->bytes())));
    }
    return {std::move(records), TailOffset::unixMs(files.back().modifiedMs)};
}

}  // namespace sonra
