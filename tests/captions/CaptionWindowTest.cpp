#include "captions/CaptionWindow.h"

#include "captions/CaptionFixture.h"
#include "support/ManualLoop.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

class CaptionWindowTest : public testing::Test {
  protected:
    CaptionPanelModel& model() { return *desktop_.model; }
    test::FakePanel& panel() { return *desktop_.panel; }
    double progress() { return *model().progress; }

    test::ManualLoop loop_;
    test::CaptionDesktop desktop_{loop_};
    const std::unique_ptr<CaptionWindow> window_ = desktop_.makeWindow();
};

TEST_F(CaptionWindowTest, ANewTextHasNoActiveWordAndNothingPast) {
    window_->setText("one two");
    window_->updateProgress(1);
    window_->setText("the quick brown fox jumps");
    EXPECT_EQ("the quick brown fox jumps", desktop_.text());
    EXPECT_EQ(std::nullopt, *model().activeWordRange);
    EXPECT_EQ(0U, *model().pastEndIndex);
    EXPECT_EQ(0, progress());
}

TEST_F(CaptionWindowTest, ProgressMovesTheActiveWord) {
    window_->setText("the quick brown fox jumps");
    const std::pair<double, std::string> rows[] = {{0.2, "the"}, {0.5, "brown"}, {0.99, "jumps"}};
    for (const auto& [progress, word] : rows) {
        window_->updateProgress(progress);
        EXPECT_EQ(word, desktop_.activeWord());
        EXPECT_EQ((*model().activeWordRange)->begin, *model().pastEndIndex);
        EXPECT_EQ(progress, *model().progress);
    }
}

TEST_F(CaptionWindowTest, BackAtTheStartNoWordIsActive) {
    window_->setText("the quick");
    window_->updateProgress(0.9);
    window_->updateProgress(0);
    EXPECT_EQ(std::nullopt, *model().activeWordRange);
    EXPECT_EQ(0U, *model().pastEndIndex);
}

TEST_F(CaptionWindowTest, ProgressOutOfRangeIsHeld) {
    window_->setText("the quick");
    window_->updateProgress(9);
    EXPECT_EQ(1, progress());
    EXPECT_EQ("quick", desktop_.activeWord());
    window_->updateProgress(-1);
    EXPECT_EQ(0, progress());
    EXPECT_EQ("", desktop_.activeWord());
}

TEST_F(CaptionWindowTest, ProgressOnAnEmptyTextTouchesNoWord) {
    window_->setText("");
    window_->updateProgress(0.7);
    EXPECT_EQ(std::nullopt, *model().activeWordRange);
    EXPECT_EQ(0U, *model().pastEndIndex);
}

TEST_F(CaptionWindowTest, TheSameWordIsSetOnlyOnce) {
    window_->setText("the quick");
    window_->updateProgress(0.4);
    int changes = 0;
    model().onChange = [&](const void* field) {
        if (field == &model().activeWordRange) ++changes;
    };
    window_->updateProgress(0.45);
    EXPECT_EQ(0, changes);
    window_->updateProgress(0.9);
    EXPECT_EQ(1, changes);
}

TEST_F(CaptionWindowTest, TheViewNeverSeesAWordOfAnotherText) {
    window_->setText("a long text of many words");
    window_->updateProgress(1);
    bool fits = true;
    model().onChange = [&](const void*) {
        const auto& range = *model().activeWordRange;
        fits = fits && (!range || range->end <= model().chunkText->size());
    };
    window_->setText("short");
    EXPECT_TRUE(fits);
}

TEST_F(CaptionWindowTest, ShowWithoutWordsSaysThatItWaits) {
    EXPECT_FALSE(window_->isVisible());
    window_->show();
    EXPECT_EQ("Waiting for narration…", desktop_.text());
    EXPECT_TRUE(window_->isVisible());
    EXPECT_EQ(1, panel().fronts);
}

TEST_F(CaptionWindowTest, ShowKeepsTheTextThatIsThere) {
    window_->setText("hello");
    window_->show();
    EXPECT_EQ("hello", desktop_.text());
    window_->hide();
    EXPECT_FALSE(window_->isVisible());
}

TEST_F(CaptionWindowTest, CountersAreReadFromTheirText) {
    struct Row {
        const char* text;
        int index;
        int total;
    };
    for (const auto& row :
         {Row{"▶ 2/5", 2, 5}, Row{"▶", 0, 0}, Row{"", 0, 0}, Row{"12/345", 12, 345},
          Row{"a7 /9", 0, 9}, Row{"7/ 9", 7, 0}, Row{"1/2/3", 1, 2}, Row{"/", 0, 0}, Row{"⏳", 0, 0},
          Row{"x12", 0, 0}, Row{"99999999999999/99999999999999", 0, 0}}) {
        window_->setCounter(row.text);
        EXPECT_EQ(row.index, *model().chunkIndex) << row.text;
        EXPECT_EQ(row.total, *model().chunkTotal) << row.text;
    }
}

TEST_F(CaptionWindowTest, IdleKeepsTheTextAndClearsTheRest) {
    window_->setText("the quick");
    window_->setCounter("▶ 2/5");
    window_->updateProgress(0.5);
    window_->updateSpectrum({0.5F}, {0.9F});
    window_->setStatus({NarrationStatus::Phase::playing});
    window_->setIdle();
    EXPECT_EQ("the quick", desktop_.text());
    EXPECT_EQ(0, progress());
    EXPECT_EQ(0, *model().chunkIndex);
    EXPECT_EQ(0, *model().chunkTotal);
    EXPECT_TRUE(model().spectrum->empty());
    EXPECT_TRUE(model().spectrumPeaks->empty());
    EXPECT_EQ(NarrationStatus{}, *model().status);
}

TEST_F(CaptionWindowTest, PausedAndPlayingAreOpposites) {
    window_->setPaused(true);
    EXPECT_TRUE(*model().isPaused);
    EXPECT_FALSE(*model().isPlaying);
    window_->setPaused(false);
    EXPECT_FALSE(*model().isPaused);
    EXPECT_TRUE(*model().isPlaying);
}

TEST_F(CaptionWindowTest, PassesWhatItIsToldToTheModel) {
    window_->updateSpectrum({0.1F, 0.2F}, {0.3F, 0.4F});
    window_->setSpeed(1.5);
    window_->setElapsed(3);
    window_->setDuration(12);
    window_->setLiveIndicator({LiveIndicator::History{2, 9}});
    window_->setNewLiveCount(4);
    window_->setStatus(NarrationStatus::paused(3));
    window_->setSessionLabel("sonra · main");
    window_->setTheme(HarnessTheme::current("codex"));
    EXPECT_EQ((std::vector{0.1F, 0.2F}), *model().spectrum);
    EXPECT_EQ((std::vector{0.3F, 0.4F}), *model().spectrumPeaks);
    EXPECT_EQ(1.5, *model().speed);
    EXPECT_EQ(3, *model().elapsed);
    EXPECT_EQ(12, *model().duration);
    EXPECT_EQ((LiveIndicator{LiveIndicator::History{2, 9}}), *model().liveIndicator);
    EXPECT_EQ(4, *model().newLiveCount);
    EXPECT_EQ(NarrationStatus::paused(3), *model().status);
    EXPECT_EQ("sonra · main", *model().sessionLabel);
    EXPECT_EQ(HarnessTheme::current("codex"), *model().theme);
}

TEST_F(CaptionWindowTest, ANegativeCountOfNewMessagesIsNone) {
    window_->setNewLiveCount(2);
    window_->setNewLiveCount(-3);
    EXPECT_EQ(0, *model().newLiveCount);
}

TEST_F(CaptionWindowTest, ControlsOfThePanelReachTheOwner) {
    Calls calls;
    model().onNext();  // nobody listens yet
    window_->onRestart = [&] { calls.emplace_back("restart"); };
    window_->onPlayPause = [&] { calls.emplace_back("play"); };
    window_->onSkip = [&] { calls.emplace_back("skip"); };
    window_->onJumpToLive = [&] { calls.emplace_back("live"); };
    model().onPrev();
    model().onPlayPause();
    model().onNext();
    model().onJumpToLive();
    EXPECT_EQ((Calls{"restart", "play", "skip", "live"}), calls);
}

TEST_F(CaptionWindowTest, TheCloseButtonHidesAndTells) {
    bool visibleWhenTold = true;
    window_->onClose = [&] { visibleWhenTold = window_->isVisible(); };
    window_->show();
    panel().pressClose();
    EXPECT_FALSE(visibleWhenTold);
    EXPECT_FALSE(window_->isVisible());
}

TEST_F(CaptionWindowTest, AScrubSeeksAndHoldsTheBarUnderTheFinger) {
    std::vector<double> seeks;
    window_->onSeek = [&](double fraction) { seeks.push_back(fraction); };
    window_->setText("the quick brown fox jumps");
    model().onScrub(0.5);
    model().onScrub(1.7);
    EXPECT_EQ((std::vector{0.5, 1.0}), seeks);
    window_->updateProgress(0.2);
    EXPECT_EQ(1, progress());
    EXPECT_EQ("the", desktop_.activeWord());
    window_->setText("another");
    EXPECT_EQ(1, progress());
}

TEST_F(CaptionWindowTest, AfterAScrubProgressFollowsOnlyAQuarterSecondAfterTheLastDrag) {
    model().onScrub(0.5);
    loop_.advance(200ms);
    model().onScrub(0.6);
    loop_.advance(249ms);
    window_->updateProgress(0.1);
    EXPECT_EQ(0.6, progress());
    loop_.advance(1ms);
    window_->updateProgress(0.1);
    EXPECT_EQ(0.1, progress());
}

TEST_F(CaptionWindowTest, StoredAppearanceIsTakenUpAtTheStartAndAtEachChange) {
    desktop_.defaults.values = {{"TTSCaptionsFontSize", 18}, {"TTSCaptionsOpacity", 0.7}};
    const auto window = desktop_.makeWindow();
    EXPECT_EQ(18, *model().fontSize);
    EXPECT_EQ(0.7, panel().opacity);
    window->appearance().setFontSize(30);
    window->appearance().setOpacity(0.1);
    EXPECT_EQ(30, *model().fontSize);
    EXPECT_EQ(0.5, panel().opacity);
}

TEST_F(CaptionWindowTest, SettingAnEqualValueIsNoChange) {
    window_->setSpeed(1.25);
    int changes = 0;
    model().onChange = [&](const void*) { ++changes; };
    window_->setSpeed(1.25);
    EXPECT_EQ(0, changes);
    window_->setSpeed(1.5);
    EXPECT_EQ(1, changes);
}

}  // namespace
}  // namespace sonra
