#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/MediaSession.h"

namespace sonra {

/// The program as a media player on the session bus (MPRIS 2): media keys, headphones and the
/// desktop's media widget show and steer it there.
///
/// Main thread only, and nothing ever waits for the bus. The name is held from the first sound
/// until `retire`; without a bus everything is silent. Nothing wakes up while nothing changes.
class QtMpris : public MediaSession {
  public:
    /// Needs the application object.
    explicit QtMpris(MainLoop& loop);
    ~QtMpris() override;
    QtMpris(const QtMpris&) = delete;
    QtMpris& operator=(const QtMpris&) = delete;

  private:
    void offer() override;
    void withdraw() override;
    void publish(const MediaView& view, std::optional<std::int64_t> jumpedTo) override;

    struct Exported;
    const std::unique_ptr<Exported> exported_;
};

}  // namespace sonra
