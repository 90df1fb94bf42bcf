#include "captions/CaptionFrame.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

namespace sonra::CaptionFrame {
namespace {

constexpr double margin = 10;
constexpr double standardShare = 0.6;
constexpr double standardMaxWidth = 820;
constexpr double standardHeight = 260;
constexpr double standardGapBelow = 100;

double heldLength(double length, double least, double visible) {
    return std::max(least, std::min(length, visible - 2 * margin));
}

double heldStart(double start, double length, double visibleStart, double visibleLength) {
    const double last = visibleStart + visibleLength - length - margin;
    return std::max(visibleStart + margin, std::min(start, last));
}

std::string number(double value) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return {buffer.data(), result.ptr};
}

std::string pairText(double first, double second) {
    return "{" + number(first) + ", " + number(second) + "}";
}

void skipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

bool take(std::string_view& text, char expected) {
    skipBlanks(text);
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(1);
    return true;
}

bool take(std::string_view& text, double& value) {
    skipBlanks(text);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || !std::isfinite(value)) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

std::optional<std::pair<double, double>> pairFrom(std::string_view text) {
    std::pair<double, double> pair;
    if (!take(text, '{') || !take(text, pair.first) || !take(text, ',') ||
        !take(text, pair.second) || !take(text, '}'))
        return std::nullopt;
    skipBlanks(text);
    return text.empty() ? std::optional(pair) : std::nullopt;
}

}  // namespace

Rect held(const Rect& frame, const Rect& visible) {
    const Size size{heldLength(frame.size.width, minSize.width, visible.size.width),
                    heldLength(frame.size.height, minSize.height, visible.size.height)};
    return {{heldStart(frame.origin.x, size.width, visible.origin.x, visible.size.width),
             heldStart(frame.origin.y, size.height, visible.origin.y, visible.size.height)},
            size};
}

Rect standard(const Rect& visible) {
    const Size size{std::min(visible.size.width * standardShare, standardMaxWidth), standardHeight};
    return {{visible.origin.x + (visible.size.width - size.width) / 2,
             visible.origin.y + visible.size.height - standardGapBelow - size.height},
            size};
}

std::string text(const Point& point) {
    return pairText(point.x, point.y);
}

std::string text(const Size& size) {
    return pairText(size.width, size.height);
}

std::optional<Point> pointFrom(std::string_view text) {
    const auto pair = pairFrom(text);
    return pair ? std::optional(Point{pair->first, pair->second}) : std::nullopt;
}

std::optional<Size> sizeFrom(std::string_view text) {
    const auto pair = pairFrom(text);
    return pair ? std::optional(Size{pair->first, pair->second}) : std::nullopt;
}

}  // namespace sonra::CaptionFrame
