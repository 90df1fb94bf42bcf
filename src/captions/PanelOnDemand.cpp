#include "captions/PanelOnDemand.h"

#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {

PanelOnDemand::PanelOnDemand(Make make) : make_(std::move(make)) {}

void PanelOnDemand::setFrame(const Rect& frame, bool animated) {
    SONRA_ASSERT_MAIN_THREAD();
    if (panel_) return panel_->setFrame(frame, animated);
    frame_ = frame;
}

Rect PanelOnDemand::frame() const {
    return panel_ ? panel_->frame() : frame_;
}

void PanelOnDemand::orderFront() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!panel_) makePanel();
    panel_->orderFront();
}

void PanelOnDemand::orderOut() {
    SONRA_ASSERT_MAIN_THREAD();
    if (panel_) panel_->orderOut();
}

bool PanelOnDemand::isVisible() const {
    return panel_ && panel_->isVisible();
}

void PanelOnDemand::setOpacity(double opacity) {
    SONRA_ASSERT_MAIN_THREAD();
    if (panel_) return panel_->setOpacity(opacity);
    opacity_ = opacity;
}

void PanelOnDemand::makePanel() {
    panel_ = make_();
    panel_->onFrameChanged = [this] {
        if (onFrameChanged) onFrameChanged();
    };
    panel_->onCloseRequested = [this] {
        if (onCloseRequested) onCloseRequested();
    };
    panel_->setFrame(frame_, false);
    panel_->setOpacity(opacity_);
}

}  // namespace sonra
