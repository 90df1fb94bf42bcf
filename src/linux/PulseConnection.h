#pragma once

#include <functional>
#include <optional>
#include <string>

#include "frame/Patience.h"
#include "linux/PulseLoop.h"

struct pa_context;

namespace sonra {

/// The program's connection to the sound server (PulseAudio's, or PipeWire's in its place).
///
/// Kept between sounds, since an idle connection costs nothing, and made again by the next `reach`
/// after the server has died. A server isn't started by us: the desktop does that. Called on the
/// main thread; streams use `context` under the lock of `loop`. A failure is a text for a person,
/// in the server's own words.
class PulseConnection {
  public:
    PulseConnection() = default;
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    /// Begins to connect and returns at once, so that the first sound finds the connection ready.
    void connectAhead();
    /// Waits until the server has accepted us; the reason if it doesn't. A server that is silent
    /// until `patience` is over is given up, and the next call starts afresh.
    [[nodiscard]] std::optional<std::string> reach(Patience& patience) SONRA_EXCLUDES(loop_);
    /// Gives the server up. Streams on the connection end.
    void drop() SONRA_REQUIRES(loop_);

    PulseLoop& loop() SONRA_TSA(lock_returned(loop_)) { return loop_; }
    /// Null before the first `reach` or `connectAhead`.
    [[nodiscard]] pa_context* context() const SONRA_REQUIRES(loop_) { return context_; }
    /// What went wrong last.
    [[nodiscard]] std::string errorText() const SONRA_REQUIRES(loop_);
    /// Waits until `done` holds, asked again whenever the loop's waiters are woken; false when
    /// `patience` is over.
    [[nodiscard]] bool waitFor(const std::function<bool()>& done, Patience& patience)
        SONRA_REQUIRES(loop_);

  private:
    [[nodiscard]] bool begin() SONRA_REQUIRES(loop_);

    PulseLoop loop_;
    pa_context* context_ SONRA_GUARDED_BY(loop_) = nullptr;
};

}  // namespace sonra
