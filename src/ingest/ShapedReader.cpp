#include "ingest/ShapedReader.h"

#include <algorithm>
#include <utility>

#include "ingest/FileTail.h"

namespace sonra {
namespace {

TailOffset ownCursor(const ShapeReader& shape, const std::string& url, TailOffset offset) {
    if (offset.kind() == shape.cursorKind()) return offset;
    return offset.intValue() == 0 ? TailOffset::of(shape.cursorKind(), 0)
                                  : shape.initialOffset(url);
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

LiveTailReader::Reading ShapedReader::readSince(const std::string& url, TailOffset offset) const {
    if (isAtEnd(url, offset) && offset.intValue() > 0) return {{}, offset};
    const auto* shape = shapeOf(url);
    if (shape == nullptr) return original_->readSince(url, offset);
    return shape->readSince(url, ownCursor(*shape, url, offset));
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
