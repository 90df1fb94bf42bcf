#include "ingest/ShapedReader.h"

#include <algorithm>
#include <utility>

#include "ingest/FileTail.h"

namespace sonra {
namespace {

/// `offset` as `reader` understands it.
TailOffset ownCursor(const LiveTailReader& reader, bool countsThousandths, const std::string& url,
                     TailOffset offset) {
    const auto kind = reader.cursorKindOf(url);
    if (offset.kind() == kind) return offset.inThousandths(countsThousandths);
    return offset.intValue() == 0 ? TailOffset::of(kind, 0) : reader.initialOffset(url);
}

bool isAtEnd(const std::string& url, TailOffset offset) {
    return offset.kind() == TailOffset::Kind::byte && FileTail::sizeOf(url) == offset.intValue();
}

}  // namespace

ShapedReader::ShapedReader(std::unique_ptr<const LiveTailReader> original,
                           std::vector<std::unique_ptr<const ShapeReader>> others)
    : original_(std::move(original)), others_(std::move(others)) {}

const ShapeReader* ShapedReader::shapeOf(const std::string& url) const {
    const auto found =
        std::ranges::find_if(others_, [&](const auto& shape) { return shape->recognises(url); });
    return found == others_.end() ? nullptr : found->get();
}

TailOffset ShapedReader::initialOffset(const std::string& url) const {
    const auto* shape = shapeOf(url);
    return shape == nullptr ? original_->initialOffset(url) : shape->initialOffset(url);
}

TailOffset::Kind ShapedReader::cursorKindOf(const std::string& url) const {
    const auto* shape = shapeOf(url);
    return shape == nullptr ? original_->cursorKindOf(url) : shape->cursorKind();
}

LiveTailReader::Reading ShapedReader::readSince(const std::string& url, TailOffset offset) const {
    if (isAtEnd(url, offset) && offset.intValue() > 0) return {{}, offset};
    const auto* shape = shapeOf(url);
    const LiveTailReader& reader = shape == nullptr ? *original_ : *shape;
    const auto own = ownCursor(reader, shape != nullptr && shape->countsThousandths(), url, offset);
    auto reading = reader.readSince(url, own);
    // A time that doesn't move stays as it was told.
    if (own.kind() == offset.kind() && reading.newOffset == own) reading.newOffset = offset;
    return reading;
}

std::string ShapedReader::watchPath(const std::string& url) const {
    for (const auto& shape : others_)
        if (auto path = shape->watchPath(url); path != url) return path;
    return original_->watchPath(url);
}

std::optional<HistoryMessage> ShapedReader::AnyParser::parse(const TranscriptRecord& record) const {
    if (auto message = owner_.original_->parser().parse(record)) return message;
    // Lines are the original's; the other shapes' records are decoded.
    if (record.asJsonl() != nullptr) return std::nullopt;
    for (const auto& shape : owner_.others_)
        if (auto message = shape->parser().parse(record)) return message;
    return std::nullopt;
}

}  // namespace sonra
