#pragma once

#include <QColor>
#include <QImage>

namespace sonra {

/// Soft shadows and glows. Pure functions.
namespace Blur {

/// `mask` (Alpha8) blurred as a Gaussian of `sigma` pixels nearly would; of the same size, so that
/// the caller leaves room around what is to be soft.
QImage softened(const QImage& mask, double sigma);

/// `mask` in one colour, premultiplied.
QImage tinted(const QImage& mask, const QColor& color);

}  // namespace Blur
}  // namespace sonra
