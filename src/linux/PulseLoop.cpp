#include "linux/PulseLoop.h"

#include <pulse/thread-mainloop.h>

#include <new>

namespace sonra {

PulseLoop::PulseLoop() : loop_(pa_threaded_mainloop_new()) {
    if (loop_ == nullptr) throw std::bad_alloc();
    pa_threaded_mainloop_set_name(loop_, "sonra-pulse");
}

PulseLoop::~PulseLoop() {
    if (started_) pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
}

bool PulseLoop::start() {
    if (!started_) started_ = pa_threaded_mainloop_start(loop_) == 0;
    return started_;
}

void PulseLoop::lock() {
    pa_threaded_mainloop_lock(loop_);
}

void PulseLoop::unlock() {
    pa_threaded_mainloop_unlock(loop_);
}

void PulseLoop::wait() {
    pa_threaded_mainloop_wait(loop_);
}

void PulseLoop::wakeWaiters() {
    pa_threaded_mainloop_signal(loop_, 0);
}

pa_mainloop_api* PulseLoop::api() const {
    return pa_threaded_mainloop_get_api(loop_);
}

}  // namespace sonra
