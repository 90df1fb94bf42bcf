#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "captions/CaptionWindow.h"
#include "support/FakeDefaults.h"
#include "support/FakePanel.h"
#include "support/FakeScreens.h"

namespace sonra::test {

/// What a caption window needs of the desktop, on fakes. Makes windows and keeps an eye on the
/// panel and the model of the last one.
class CaptionDesktop {
  public:
    explicit CaptionDesktop(MainLoop& loop) : loop_(loop) {}

    std::unique_ptr<CaptionWindow> makeWindow() {
        const auto makePanel = [this](CaptionPanelModel& made) {
            auto owned = std::make_unique<FakePanel>();
            panel = owned.get();
            model = &made;
            return owned;
        };
        return std::make_unique<CaptionWindow>(loop_, defaults, screens, makePanel);
    }
    [[nodiscard]] std::string text() const { return *model->chunkText; }
    /// The word being spoken; empty if there is none.
    [[nodiscard]] std::string activeWord() const {
        const auto& range = *model->activeWordRange;
        return range ? text().substr(range->begin, range->end - range->begin) : "";
    }

    FakeDefaults defaults;
    FakeScreens screens;
    FakePanel* panel = nullptr;
    CaptionPanelModel* model = nullptr;

  private:
    MainLoop& loop_;
};

}  // namespace sonra::test
