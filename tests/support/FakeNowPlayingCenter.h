#pragma once

#include <utility>

#include "platform/NowPlayingCenter.h"

namespace sonra::test {

/// Remembers what the desktop would show, and how often it was told.
class FakeNowPlayingCenter : public NowPlayingCenter {
  public:
    void setInfo(std::optional<NowPlayingInfo> info) override {
        info_ = std::move(info);
        ++pushes;
    }
    std::optional<NowPlayingInfo> info() const override { return info_; }
    void setPlaybackState(PlaybackState newState) override { state = newState; }

    std::optional<PlaybackState> state;
    int pushes = 0;

  private:
    std::optional<NowPlayingInfo> info_;
};

}  // namespace sonra::test
