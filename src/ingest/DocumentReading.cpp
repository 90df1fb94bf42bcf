#include "ingest/DocumentReading.h"

#include <algorithm>
#include <utility>

#include "ingest/FileTail.h"
#include "ingest/RecordTexts.h"
#include "ingest/UnchangedDocuments.h"

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

std::optional<Json> load(const std::string& url) {
    const auto file = FileTail::read(url, 0);
    return file ? json::parse(file->bytes()) : std::nullopt;
}

std::optional<Json> loadMessages(const std::string& url) {
    auto document = load(url);
    if (!document || RecordTexts::objectsAt(*document, "messages") == nullptr) return std::nullopt;
    return std::move((*document)["messages"]);
}

TailOffset endOf(const std::optional<Json>& elements) {
    return TailOffset::messageIndex(elements ? static_cast<std::int64_t>(elements->size()) : 0);
}

LiveTailReader::Reading since(const std::string& url, TailOffset offset,
                              std::optional<Json> (*load)(const std::string& url)) {
    static UnchangedDocuments unchanged;
    // Taken first: what is written during the reading makes another version.
    const auto version = UnchangedDocuments::versionOf(url);
    const auto known = version ? unchanged.count(url, *version) : std::nullopt;
    if (known && *known <= offset.intValue()) return {{}, offset};
    auto elements = load(url);
    // One that can't be read now may be readable later without being written to.
    if (version && elements) unchanged.remember(url, *version, endOf(elements).intValue());
    return behind(std::move(elements), offset);
}

}  // namespace sonra::DocumentReading
