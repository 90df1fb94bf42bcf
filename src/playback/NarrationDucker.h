#pragma once

namespace sonra {

class NarrationDuckTarget;

/// Keeps narration from talking over the user: pauses it for the length of a dictation and puts it
/// back as it was.
///
/// Main thread only; borrows its target, which outlives it; never fails. A user who resumes by hand
/// meanwhile has decided, and is left alone.
class NarrationDucker {
  public:
    explicit NarrationDucker(NarrationDuckTarget& queue) : queue_(queue) {}
    NarrationDucker(const NarrationDucker&) = delete;
    NarrationDucker& operator=(const NarrationDucker&) = delete;

    /// Pauses whether or not anything plays, so that what comes meanwhile is held too.
    void duck();
    void unduck();

    [[nodiscard]] bool isDucked() const { return isDucked_; }
    [[nodiscard]] bool enabled() const { return enabled_; }
    /// Looked at by `duck` only: a duck that is in force still ends as it should.
    void setEnabled(bool enabled) { enabled_ = enabled; }

  private:
    NarrationDuckTarget& queue_;
    bool pausedBeforeDuck_ = false;
    bool isDucked_ = false;
    bool enabled_ = true;
};

}  // namespace sonra
