#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/FileWatcher.h"

namespace sonra::test {

/// A file watcher whose events the test fires by hand. Like the real one it refuses a path at which
/// nothing is.
class FakeFileWatcher : public FileWatcher {
  public:
    FakeFileWatcher();
    ~FakeFileWatcher() override;

    [[nodiscard]] std::unique_ptr<FileWatch> watch(const std::string& path,
                                                   Callback onEvents) override;

    /// Refuses every path from now on, as at the system's limit.
    void refuseAll(bool refuse) { refuse_ = refuse; }
    /// Reports to every armed watch of the path; returns how many there were.
    int fire(const std::string& path, FileEvents events);
    /// Reports to every watch that was ever armed, also to those that have ended: a watcher at its
    /// worst.
    void fireStale(FileEvents events);
    /// Paths of the armed watches, in the order in which they were armed.
    [[nodiscard]] std::vector<std::string> armed() const;
    /// Times that a watch was armed.
    [[nodiscard]] std::size_t armings() const;

  private:
    struct Watches;
    class Watch;

    std::shared_ptr<Watches> watches_;
    bool refuse_ = false;
};

}  // namespace sonra::test
