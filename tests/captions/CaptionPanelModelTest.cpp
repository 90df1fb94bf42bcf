#include "captions/CaptionPanelModel.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

TEST(CaptionPanelModel, BeginsWithNothingToShow) {
    const CaptionPanelModel model(19);
    EXPECT_EQ(19, *model.fontSize);
    EXPECT_EQ("", *model.chunkText);
    EXPECT_EQ(std::nullopt, *model.activeWordRange);
    EXPECT_EQ(std::nullopt, *model.pastEndIndex);
    EXPECT_EQ(0, *model.chunkIndex);
    EXPECT_EQ(0, *model.chunkTotal);
    EXPECT_EQ(0, *model.elapsed);
    EXPECT_EQ(0, *model.duration);
    EXPECT_EQ(0, *model.progress);
    EXPECT_FALSE(*model.isPlaying);
    EXPECT_FALSE(*model.isPaused);
    EXPECT_EQ(1, *model.speed);
    EXPECT_TRUE(model.spectrum->empty());
    EXPECT_TRUE(model.spectrumPeaks->empty());
    EXPECT_EQ(HarnessTheme::current("claude-code"), *model.theme);
    EXPECT_EQ(LiveIndicator{LiveIndicator::Idle{}}, *model.liveIndicator);
    EXPECT_EQ(0, *model.newLiveCount);
    EXPECT_EQ(NarrationStatus{NarrationStatus::Phase::idle}, *model.status);
}

TEST(CaptionPanelModel, ControlsDoNothingWithoutAnOwner) {
    const CaptionPanelModel model(19);
    model.onPrev();
    model.onPlayPause();
    model.onNext();
    model.onJumpToLive();
    model.onScrub(0.5);
    EXPECT_EQ(0, *model.progress);
}

TEST(CaptionPanelModel, EachChangeTellsWhichFieldItWas) {
    CaptionPanelModel model(19);
    std::vector<const void*> changed;
    model.onChange = [&](const void* field) { changed.push_back(field); };
    model.chunkText = std::string("the quick");
    model.chunkText = std::string("the quick");
    model.status = NarrationStatus::paused(1);
    model.status = NarrationStatus::paused(2);
    EXPECT_EQ((std::vector<const void*>{&model.chunkText, &model.status, &model.status}), changed);
}

}  // namespace
}  // namespace sonra
