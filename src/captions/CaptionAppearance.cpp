#include "captions/CaptionAppearance.h"

#include <algorithm>
#include <cmath>

#include "frame/ThreadAffinity.h"
#include "platform/UserDefaults.h"

namespace sonra {
namespace {

double heldFontSize(double size) {
    if (std::isnan(size)) return CaptionAppearance::defaultFontSize;
    return std::clamp(size, CaptionAppearance::minFontSize, CaptionAppearance::maxFontSize);
}

double heldOpacity(double opacity) {
    if (std::isnan(opacity)) return CaptionAppearance::defaultOpacity;
    return std::clamp(opacity, CaptionAppearance::minOpacity, CaptionAppearance::maxOpacity);
}

}  // namespace

double CaptionAppearance::fontSize() const {
    SONRA_ASSERT_MAIN_THREAD();
    return heldFontSize(defaults_.number(fontSizeKey).value_or(defaultFontSize));
}

double CaptionAppearance::opacity() const {
    SONRA_ASSERT_MAIN_THREAD();
    return heldOpacity(defaults_.number(opacityKey).value_or(defaultOpacity));
}

void CaptionAppearance::setFontSize(double size) {
    SONRA_ASSERT_MAIN_THREAD();
    defaults_.set(fontSizeKey, heldFontSize(size));
    appearanceChanged();
}

void CaptionAppearance::setOpacity(double opacity) {
    SONRA_ASSERT_MAIN_THREAD();
    defaults_.set(opacityKey, heldOpacity(opacity));
    appearanceChanged();
}

}  // namespace sonra
