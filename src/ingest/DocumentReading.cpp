#include "ingest/DocumentReading.h"

#include <algorithm>
#include <utility>

#include "ingest/FileTail.h"
#include "ingest/RecordTexts.h"

namespace sonra::DocumentReading {
namespace {

LiveTailReader::Reading behind(std::optional<Json> elements, TailOffset offset) {
    const auto end = endOf(elements);
    if (end.intValue() <= offset.intValue()) return {{}, offset};
    std::vector<TranscriptRecord> records;
    const auto start = static_cast<std::size_t>(std::max<std::int64_t>(offset.intValue(), 0));
    for (std::size_t i = start; i < elements->size(); ++i)
        records.push_back(TranscriptRecord::jsonObject(std::move((*elements)[i])));
    return {std::move(records), end};
}

}  // namespace

std::optional<Json> messagesIn(std::string_view bytes) {
    auto document = json::parse(bytes);
    if (!document || RecordTexts::objectsAt(*document, "messages") == nullptr) return std::nullopt;
    return std::move((*document)["messages"]);
}

std::optional<Json> load(const std::string& url, Decode decode) {
    const auto file = FileTail::read(url, 0);
    return file ? decode(file->bytes()) : std::nullopt;
}

TailOffset endOf(const std::optional<Json>& elements) {
    return TailOffset::messageIndex(elements ? static_cast<std::int64_t>(elements->size()) : 0);
}

LiveTailReader::Reading since(const std::string& url, TailOffset offset, Decode decode,
                              UnchangedDocuments& unchanged) {
    // Taken first: what is written during the reading makes another version.
    const auto version = UnchangedDocuments::versionOf(url);
    const auto known = version ? unchanged.count(url, *version) : std::nullopt;
    if (known && *known <= offset.intValue()) return {{}, offset};
    const auto file = FileTail::read(url, 0);
    if (!file) return {{}, offset};
    auto elements = decode(file->bytes());
    // What can't be read to its end now may be readable later without being written to.
    const auto size = static_cast<off_t>(file->bytes().size());
    if (version && size == version->document.st_size)
        unchanged.remember(url, *version, endOf(elements).intValue());
    return behind(std::move(elements), offset);
}

}  // namespace sonra::DocumentReading
