#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace sonra {

/// Gathers lines from any thread and hands them to a consumer on a queue of its own, many at a
/// time.
///
/// `add` copies the line and returns. A lone line is handed over at once; under load the consumer
/// sees what came together in a short while, so that a burst costs few system calls and few
/// wake-ups. When the consumer is stuck, lines beyond the bound are dropped and counted. Destroying
/// the batcher doesn't wait: what was added is still handed over.
class LineBatcher {
  public:
    /// `batch`: whole lines, each closed by a newline. `dropped`: lines lost behind this batch.
    using Consumer = std::function<void(std::string_view batch, std::size_t dropped)>;

    /// Bytes that may wait for the consumer, beside the batch that it is busy with.
    static constexpr std::size_t maxPendingBytes = std::size_t{4} << 20;

    LineBatcher(std::string name, Consumer consumer);
    ~LineBatcher();
    LineBatcher(const LineBatcher&) = delete;
    LineBatcher& operator=(const LineBatcher&) = delete;

    /// `line` without its newline.
    void add(std::string_view line);
    /// Waits until all earlier lines have been handed over; false if that takes longer than
    /// `limit`.
    bool flush(std::chrono::milliseconds limit);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
