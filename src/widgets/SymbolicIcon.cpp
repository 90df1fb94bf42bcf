#include "widgets/SymbolicIcon.h"

#include <QIconEngine>
#include <QPainter>
#include <algorithm>
#include <utility>

#include "widgets/Icons.h"

// A static library's resources aren't linked on their own account. In no namespace, as theirs.
static void loadTrayIcons() {
    Q_INIT_RESOURCE(tray);
}

namespace sonra {
namespace {

/// Draws the icon at whatever size is asked for.
class SymbolicEngine : public QIconEngine {
  public:
    SymbolicEngine(QString themeName, QString ownName, const QColor& ink)
        : themeName_(std::move(themeName)), ownName_(std::move(ownName)), ink_(ink) {}

    QIconEngine* clone() const override { return new SymbolicEngine(themeName_, ownName_, ink_); }
    QString iconName() override { return themeName_; }
    bool isNull() override { return false; }
    /// What panels ask for; Qt sends one picture of each.
    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        return {{16, 16}, {22, 22}, {24, 24}, {32, 32}};
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) override {
        return draw(size, mode, 1);
    }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State, qreal scale) override {
        return draw(size / scale, mode, scale);
    }
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        const auto scale = painter->device()->devicePixelRatioF();
        painter->drawPixmap(rect, draw(rect.size(), mode, scale));
    }

  private:
    QPixmap draw(const QSize& size, QIcon::Mode mode, qreal scale) const {
        auto ink = ink_;
        if (mode == QIcon::Disabled) ink.setAlphaF(ink.alphaF() * 0.4F);
        return Icons::pixmap(ownName_, std::min(size.width(), size.height()), ink, scale);
    }

    QString themeName_;
    QString ownName_;
    QColor ink_;
};

}  // namespace

QIcon symbolicIcon(const QString& themeName, const QString& ownName, const QColor& ink) {
    static const bool loaded = (loadTrayIcons(), true);
    Q_UNUSED(loaded);
    const auto name = QIcon::hasThemeIcon(themeName) ? themeName : QString();
    return QIcon(new SymbolicEngine(name, ownName, ink));
}

}  // namespace sonra
