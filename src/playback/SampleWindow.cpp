#include "playback/SampleWindow.h"

#include <algorithm>

#include "playback/MonoReader.h"

namespace sonra {
namespace {

/// Samples are dropped in lots of this many, since each time moves the rest of the buffer.
constexpr std::int64_t discardLot = 65'536;

}  // namespace

bool SampleWindow::has(std::int64_t index) {
    while (index >= count()) {
        discardUnneeded();
        if (!reader_.readBlock(buffer_)) return false;
    }
    return true;
}

void SampleWindow::copy(std::span<float> out) {
    std::ranges::fill(out, 0.0F);
    const auto end = first_ + static_cast<std::int64_t>(out.size());
    has(end - 1);
    const auto from = std::max(first_, base_);
    const auto to = std::min(end, count());
    if (from >= to) return;
    std::copy(buffer_.begin() + (from - base_), buffer_.begin() + (to - base_),
              out.begin() + (from - first_));
}

void SampleWindow::discardUnneeded() {
    const auto unneeded = std::min(first_ - base_, static_cast<std::int64_t>(buffer_.size()));
    if (unneeded < discardLot) return;
    buffer_.erase(buffer_.begin(), buffer_.begin() + unneeded);
    base_ += unneeded;
}

}  // namespace sonra
