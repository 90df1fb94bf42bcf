#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sonra {

class MonoReader;

/// A window that slides forward over the samples of a file. Reads ahead as far as it is asked to
/// and keeps only what may still be needed. For one thread; borrows the reader.
class SampleWindow {
  public:
    explicit SampleWindow(MonoReader& reader) : reader_(reader) {}

    /// Puts the window's first sample at `first`, which may lie before the file and never goes
    /// back.
    void moveTo(std::int64_t first) { first_ = first; }
    /// True if the file has a sample at `index`.
    bool has(std::int64_t index);
    /// Fills `out` from the window's first sample on, with zeros where the file has none.
    void copy(std::span<float> out);
    /// Samples read so far; the file's length once `has` was false.
    [[nodiscard]] std::int64_t count() const {
        return base_ + static_cast<std::int64_t>(buffer_.size());
    }

  private:
    void discardUnneeded();

    MonoReader& reader_;
    std::int64_t first_ = 0;
    std::vector<float> buffer_;
    std::int64_t base_ = 0;  ///< index of the first sample in the buffer
};

}  // namespace sonra
