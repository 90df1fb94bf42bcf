#pragma once

namespace sonra {

/// Declares the calling thread to be the main thread. Called once by the loop that runs there.
void declareMainThread();

/// True on the declared main thread, and everywhere as long as none was declared.
bool onMainThread();

/// Prints the broken rule and ends the process.
[[noreturn]] void threadAffinityBroken(const char* rule, const char* file, int line);

}  // namespace sonra

// Entry points of objects that belong to one thread state it with these; they hold in every build
// that runs tests.
#if defined(SONRA_ASSERTIONS)
#define SONRA_ASSERT_MAIN_THREAD()    \
    (::sonra::onMainThread() ? void() \
                             : ::sonra::threadAffinityBroken("main thread", __FILE__, __LINE__))
#define SONRA_ASSERT_ON(queue) \
    ((queue).isCurrent() ? void() : ::sonra::threadAffinityBroken(#queue, __FILE__, __LINE__))
#else
#define SONRA_ASSERT_MAIN_THREAD() void()
#define SONRA_ASSERT_ON(queue) void()
#endif
