#pragma once

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <cstdint>

namespace sonra {

/// Whether translucent windows show what lies behind them: under X11 if somebody owns the
/// compositing manager's selection, elsewhere always. Follows the selection. Main thread only.
class Compositor : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT

  public:
    Compositor();
    ~Compositor() override;
    Compositor(const Compositor&) = delete;
    Compositor& operator=(const Compositor&) = delete;

    [[nodiscard]] bool isRunning() const { return running_; }

  Q_SIGNALS:
    void changed();

  private:
    bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;
    void follow();
    void look();

    std::uint32_t selection_ = 0;  ///< the atom; 0 where there is no X server
    std::uint8_t ownerEvent_ = 0;
    bool running_ = true;
};

}  // namespace sonra
