#include "frame/ThreadAffinity.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace sonra {
namespace {

std::atomic<std::thread::id> mainThread;

}  // namespace

void declareMainThread() {
    mainThread = std::this_thread::get_id();
}

bool onMainThread() {
    const auto declared = mainThread.load();
    return declared == std::thread::id() || declared == std::this_thread::get_id();
}

void threadAffinityBroken(const char* rule, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: not on its thread: %s\n", file, line, rule);
    std::abort();
}

}  // namespace sonra
