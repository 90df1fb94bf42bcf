#include "ingest/CodexItemsReader.h"

#include "ingest/CodexSorter.h"
#include "ingest/LineReading.h"

namespace sonra {
namespace {

/// How far an event and its response item may lie apart.
constexpr std::int64_t lookBack = 65536;

}  // namespace

bool CodexItemsReader::recognises(const std::string& /*url*/) const {
    return true;
}

TailOffset CodexItemsReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading CodexItemsReader::readSince(const std::string& url,
                                                    TailOffset offset) const {
    const auto [lines, end] = LineReading::linesSince(url, offset.intValue());
    if (lines.empty()) return {{}, TailOffset::byte(end)};
    CodexSorter sorter(LineReading::before(url, offset.intValue(), lookBack));
    for (const auto& line : lines) sorter.take(line);
    if (sorter.waitingAt() && quiet_.isQuiet(url)) sorter.finish();
    const auto cursor = sorter.waitingAt().value_or(end);
    return {sorter.takeRecords(), TailOffset::byte(cursor)};
}

}  // namespace sonra
