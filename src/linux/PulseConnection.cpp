#include "linux/PulseConnection.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop-api.h>
#include <pulse/proplist.h>
#include <pulse/rtclock.h>

#include <chrono>

#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

constexpr auto applicationName = "Sonra";
constexpr auto applicationId = "dev.trelnivorn.sonra";

pa_context* newContext(pa_mainloop_api* api) {
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, applicationName);
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, applicationId);
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ICON_NAME, applicationId);
    pa_context* context = pa_context_new_with_proplist(api, applicationName, properties);
    pa_proplist_free(properties);
    return context;
}

/// Wakes the loop's waiters after a while; libpulse's own wait has no limit.
class Alarm {
  public:
    Alarm(PulseLoop& loop, pa_context* context, std::chrono::microseconds wait) SONRA_REQUIRES(loop)
        : loop_(loop), api_(loop.api()) {
        const auto at = pa_rtclock_now() + static_cast<pa_usec_t>(wait.count());
        event_ = pa_context_rttime_new(context, at, &Alarm::rang, this);
    }
    ~Alarm() { api_->time_free(event_); }
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    [[nodiscard]] bool hasRung() const { return rung_; }

  private:
    static void rang(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*at*/,
                     void* self) {
        auto* alarm = static_cast<Alarm*>(self);
        alarm->rung_ = true;
        alarm->loop_.wakeWaiters();
    }

    PulseLoop& loop_;
    pa_mainloop_api* const api_;
    pa_time_event* event_;
    bool rung_ = false;
};

}  // namespace

PulseConnection::~PulseConnection() {
    const PulseLock lock(loop_);
    drop();
}

void PulseConnection::drop() {
    if (context_ == nullptr) return;
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    context_ = nullptr;
}

void PulseConnection::connectAhead() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!loop_.start()) return;
    const PulseLock lock(loop_);
    [[maybe_unused]] const bool begun = begin();
}

/// Makes sure that a connection stands or is under way; false if it failed on the spot.
bool PulseConnection::begin() {
    if (context_ != nullptr && PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) return true;
    drop();
    context_ = newContext(loop_.api());
    pa_context_set_state_callback(
        context_, [](pa_context*, void* loop) { static_cast<PulseLoop*>(loop)->wakeWaiters(); },
        &loop_);
    return pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
}

std::optional<std::string> PulseConnection::reach(Patience& patience) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!loop_.start()) return "no thread for the sound server";
    const PulseLock lock(loop_);
    if (!begin()) return errorText();
    const bool answered = waitFor(
        [context = context_] {
            const auto state = pa_context_get_state(context);
            return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
        },
        patience);
    if (!answered) {
        drop();
        return pa_strerror(PA_ERR_TIMEOUT);
    }
    if (pa_context_get_state(context_) != PA_CONTEXT_READY) return errorText();
    return std::nullopt;
}

std::string PulseConnection::errorText() const {
    if (context_ == nullptr) return pa_strerror(PA_ERR_CONNECTIONTERMINATED);
    return pa_strerror(pa_context_errno(context_));
}

bool PulseConnection::waitFor(const std::function<bool()>& done, Patience& patience) {
    while (!done() && !patience.isOver()) {
        const auto began = pa_rtclock_now();
        const Alarm alarm(loop_, context_, patience.nextPart());
        while (!done() && !alarm.hasRung()) loop_.wait();
        patience.spend(std::chrono::microseconds(pa_rtclock_now() - began));
    }
    return done();
}

}  // namespace sonra
