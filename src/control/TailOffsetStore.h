#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace sonra {

/// Writes the cursors of the attached sessions to their rows in the shared document.
///
/// Cursors are reported on every pass of a tailer; the document is written on a queue of the
/// store's own, and only when a value has changed since it was last written or set aside. Main
/// thread only. A write that fails is dropped; the next change writes again. Destroying the store
/// lets a write under way finish.
class TailOffsetStore {
  public:
    TailOffsetStore();
    ~TailOffsetStore();
    TailOffsetStore(const TailOffsetStore&) = delete;
    TailOffsetStore& operator=(const TailOffsetStore&) = delete;

    /// The value that the row already holds, so that an unchanged one isn't written.
    void seed(const std::string& sessionId, std::int64_t offset);
    void report(const std::string& sessionId, std::int64_t offset);
    void forget(const std::string& sessionId);
    /// Waits for all that was reported before: for orderly ends of tests.
    void drain();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
