#include "linux/X11Connecting.h"

#include <pthread.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "frame/Log.h"
#include "frame/Mutex.h"

namespace sonra::X11Connecting {
namespace {

/// One connection under way; shared by its thread and those who ask for it. What nobody took is
/// closed at its end.
class Attempt {
  public:
    Attempt() = default;
    ~Attempt() {
        if (result_.connection) xcb_disconnect(result_.connection);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    void make(const std::string& display) {
        Result result;
        auto* const connection =
            xcb_connect(display.empty() ? nullptr : display.c_str(), &result.screen);
        if (xcb_connection_has_error(connection) != 0) {
            xcb_disconnect(connection);
        } else {
            result.connection = connection;
            result.outcome = Outcome::connected;
        }
        MutexLock lock(mutex_);
        result_ = result;
        isOver_ = true;
        over_.notify_all();
    }
    Result take(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        MutexLock lock(mutex_);
        while (!isOver_)
            if (lock.waitUntil(over_, deadline) == std::cv_status::timeout) break;
        if (!isOver_) return {Outcome::silent, nullptr, 0};
        return std::exchange(result_, {});
    }

  private:
    Mutex mutex_;
    std::condition_variable over_;
    bool isOver_ SONRA_GUARDED_BY(mutex_) = false;
    Result result_ SONRA_GUARDED_BY(mutex_);
};

/// The attempts of this process that outlasted their limit, one a display.
class Silent {
  public:
    /// The display's attempt, which is then the caller's; null if there is none.
    std::shared_ptr<Attempt> take(const std::string& display) {
        MutexLock lock(mutex_);
        auto found = attempts_.extract(display);
        return found ? std::move(found.mapped()) : nullptr;
    }
    void keep(const std::string& display, std::shared_ptr<Attempt> attempt) {
        MutexLock lock(mutex_);
        attempts_.insert_or_assign(display, std::move(attempt));
    }

  private:
    Mutex mutex_;
    std::map<std::string, std::shared_ptr<Attempt>> attempts_ SONRA_GUARDED_BY(mutex_);
};

/// Lives as long as the process: attempts end when the server likes.
Silent& silent() {
    static auto* const kept = new Silent;
    return *kept;
}

std::shared_ptr<Attempt> begin(const std::string& display) {
    auto attempt = std::make_shared<Attempt>();
    std::thread([attempt, display] {
        ::pthread_setname_np(::pthread_self(), "sonra.x11");
        attempt->make(display);
    }).detach();
    return attempt;
}

void logSilence(const std::string& display) {
    Log::shared()
        .child({{"class", "X11Connecting"}})
        .info("x server doesn't answer, it is not waited for", {{"input", {{"display", display}}}});
}

}  // namespace

Result connect(const std::string& display, std::chrono::milliseconds limit) {
    auto attempt = silent().take(display);
    const bool isOld = attempt != nullptr;
    if (!isOld) attempt = begin(display);
    const auto result = attempt->take(isOld ? std::chrono::milliseconds(0) : limit);
    if (result.outcome != Outcome::silent) return result;
    silent().keep(display, std::move(attempt));
    if (!isOld) logSilence(display);
    return result;
}

}  // namespace sonra::X11Connecting
