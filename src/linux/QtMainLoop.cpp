#include "linux/QtMainLoop.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSocketNotifier>
#include <QTimerEvent>
#include <algorithm>
#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

const QEvent::Type postedWork = static_cast<QEvent::Type>(QEvent::registerEventType());

using Work = std::shared_ptr<std::function<void()>>;

}  // namespace

/// Receives the event that stands for posted work.
class QtMainLoop::Receiver : public QObject {
  public:
    explicit Receiver(QtMainLoop& loop) : loop_(loop) {}

  private:
    bool event(QEvent* event) override {
        if (event->type() != postedWork) return QObject::event(event);
        loop_.runPosted();
        return true;
    }
    QtMainLoop& loop_;
};

/// A timer that is armed anew for each firing, so that it keeps to its schedule and is never early.
class QtMainLoop::Timer : public QObject {
  public:
    Timer(QObject* parent, Duration delay, Duration interval, std::function<void()> work)
        : QObject(parent),
          due_(Clock::now() + std::max(delay, Duration::zero())),
          interval_(interval),
          work_(std::make_shared<std::function<void()>>(std::move(work))) {
        arm();
    }
    /// Also from its own callback.
    void cancel() {
        disarm();
        work_.reset();
        deleteLater();
    }

  private:
    void arm() {
        const auto left = std::max(due_ - Clock::now(), Duration::zero());
        timerId_ = startTimer(std::chrono::ceil<std::chrono::milliseconds>(left), Qt::PreciseTimer);
    }
    void disarm() {
        if (timerId_ != 0) killTimer(std::exchange(timerId_, 0));
    }
    void timerEvent(QTimerEvent* event) override {
        if (event->timerId() != timerId_) return;
        disarm();
        const auto now = Clock::now();
        if (now < due_) return arm();
        if (interval_ > Duration::zero()) {
            due_ += interval_;
            if (due_ <= now) due_ = now + interval_;
            arm();
        }
        const Work work = work_;
        (*work)();
    }

    Clock::time_point due_;
    const Duration interval_;  ///< zero for a one-shot
    Work work_;
    int timerId_ = 0;
};

class QtMainLoop::Watch : public QObject {
  public:
    Watch(QObject* parent, int fd, QSocketNotifier::Type type, std::function<void()> work)
        : QObject(parent),
          notifier_(fd, type),
          work_(std::make_shared<std::function<void()>>(std::move(work))) {
        connect(&notifier_, &QSocketNotifier::activated, this, [this] {
            if (const Work run = work_) (*run)();
        });
    }
    /// Also from its own callback.
    void cancel() {
        notifier_.setEnabled(false);
        work_.reset();
        deleteLater();
    }

  private:
    QSocketNotifier notifier_;
    Work work_;
};

QtMainLoop::QtMainLoop() : receiver_(std::make_unique<Receiver>(*this)) {
    declareMainThread();
}

QtMainLoop::~QtMainLoop() = default;

bool QtMainLoop::needsEvent() {
    return !posted_.empty() && !std::exchange(eventUnderWay_, true);
}

void QtMainLoop::post(std::function<void()> work) {
    const MutexLock lock(mutex_);
    posted_.push_back(std::move(work));
    if (needsEvent()) QCoreApplication::postEvent(receiver_.get(), new QEvent(postedWork));
}

/// Runs what was posted before this turn. Each piece leaves the queue only when it runs and an
/// event stands for the rest, so that an inner event loop finds it.
void QtMainLoop::runPosted() {
    std::size_t batch = 0;
    {
        const MutexLock lock(mutex_);
        eventUnderWay_ = false;
        batch = posted_.size();
    }
    for (; batch > 0; --batch) {
        const auto work = next();
        if (!work) return;
        work();
    }
}

/// Takes the oldest piece; empty when an inner loop has run them all.
std::function<void()> QtMainLoop::next() {
    const MutexLock lock(mutex_);
    if (posted_.empty()) return nullptr;
    auto work = std::move(posted_.front());
    posted_.pop_front();
    if (needsEvent()) QCoreApplication::postEvent(receiver_.get(), new QEvent(postedWork));
    return work;
}

LoopHandle QtMainLoop::arm(Duration delay, Duration interval, std::function<void()> work) {
    SONRA_ASSERT_MAIN_THREAD();
    auto* timer = new Timer(receiver_.get(), delay, interval, std::move(work));
    return LoopHandle([timer] { timer->cancel(); });
}

LoopHandle QtMainLoop::after(Duration delay, std::function<void()> work) {
    return arm(delay, Duration::zero(), std::move(work));
}

LoopHandle QtMainLoop::every(Duration interval, std::function<void()> work) {
    return arm(interval, interval, std::move(work));
}

LoopHandle QtMainLoop::watch(int fd, Interest interest, std::function<void()> work) {
    SONRA_ASSERT_MAIN_THREAD();
    if (fd < 0) return LoopHandle([] {});
    const auto type =
        interest == Interest::readable ? QSocketNotifier::Read : QSocketNotifier::Write;
    auto* watch = new Watch(receiver_.get(), fd, type, std::move(work));
    return LoopHandle([watch] { watch->cancel(); });
}

}  // namespace sonra
