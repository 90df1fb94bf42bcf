#include "widgets/Blur.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace sonra::Blur {
namespace {

/// Mean over `2 * radius + 1` values along a line whose values lie `stride` apart.
void boxLine(const uchar* from, uchar* to, int count, qsizetype stride, int radius) {
    const int window = 2 * radius + 1;
    int sum = 0;
    const auto at = [&](int i) { return i < 0 || i >= count ? 0 : int{from[i * stride]}; };
    for (int i = -radius; i < radius; ++i) sum += at(i);
    for (int i = 0; i < count; ++i) {
        sum += at(i + radius);
        to[i * stride] = static_cast<uchar>((sum + radius) / window);
        sum -= at(i - radius);
    }
}

}  // namespace

QImage softened(const QImage& mask, double sigma) {
    // Three boxes come close to a Gaussian: variance 3 * (w^2 - 1) / 12.
    const int radius = static_cast<int>(std::lround((std::sqrt(4 * sigma * sigma + 1) - 1) / 2));
    if (radius < 1 || mask.isNull()) return mask;
    QImage one = mask.copy();
    QImage other(mask.size(), QImage::Format_Alpha8);
    for (int pass = 0; pass < 3; ++pass) {
        for (int y = 0; y < one.height(); ++y)
            boxLine(one.constScanLine(y), other.scanLine(y), one.width(), 1, radius);
        for (int x = 0; x < one.width(); ++x)
            boxLine(other.constBits() + x, one.bits() + x, one.height(), one.bytesPerLine(),
                    radius);
    }
    one.setDevicePixelRatio(mask.devicePixelRatio());
    return one;
}

QImage tinted(const QImage& mask, const QColor& color) {
    QImage result(mask.size(), QImage::Format_ARGB32_Premultiplied);
    result.setDevicePixelRatio(mask.devicePixelRatio());
    std::vector<QRgb> shades(256);
    for (int alpha = 0; alpha < 256; ++alpha)
        shades[static_cast<std::size_t>(alpha)] = qPremultiply(
            qRgba(color.red(), color.green(), color.blue(), alpha * color.alpha() / 255));
    for (int y = 0; y < mask.height(); ++y) {
        const auto* from = mask.constScanLine(y);
        auto* to = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < mask.width(); ++x) to[x] = shades[from[x]];
    }
    return result;
}

}  // namespace sonra::Blur
