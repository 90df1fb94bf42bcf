#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace sonra {

/// Threads for work in no order: analysis of a file, waiting for a child process.
///
/// Threads are made as they are needed, up to a limit, and park without waking when there is
/// nothing to do. Any thread may post. Destroying the pool lets work that was posted before finish
/// without waiting for it. Work must not throw.
class WorkerPool {
  public:
    explicit WorkerPool(std::size_t maxThreads = 8);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    void post(std::function<void()> work);
    /// Waits until everything that was posted has run: for orderly ends of tests and benchmarks.
    void drain();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
