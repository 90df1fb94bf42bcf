#pragma once

namespace sonra {

/// What is held still during a dictation. Main thread only.
class NarrationDuckTarget {
  public:
    virtual ~NarrationDuckTarget() = default;

    [[nodiscard]] virtual bool isCurrentlyPlaying() const = 0;
    [[nodiscard]] virtual bool paused() const = 0;
    /// While paused nothing starts.
    virtual void setPaused(bool paused) = 0;
};

}  // namespace sonra
