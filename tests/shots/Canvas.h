#pragma once

#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QRegion>
#include <string>

namespace sonra::shots {

/// A piece of a desktop, dark or light, on which windows are put: what is translucent shows it. In
/// the application's scale. Main thread only.
class Canvas {
  public:
    Canvas(const QSize& size, bool isDark);

    /// Puts a window there; `shape`, in its coordinates, cuts it out unless it is empty.
    void put(const QPixmap& window, const QPoint& place, const QRegion& shape = {});

    [[nodiscard]] QImage& image() { return image_; }

    /// Writes `name`.png, with the scale in its name if that isn't 1. Says on standard error what
    /// couldn't be written.
    [[nodiscard]] bool save(const QDir& folder, const std::string& name) const;

  private:
    QImage image_;
};

}  // namespace sonra::shots
