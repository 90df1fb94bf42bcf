#pragma once

#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace sonra::test {

/// Prints a line at once, also into a pipe.
inline void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

/// Standard input of a program that a test steers: calls `obey` with each whole line on the thread
/// of the application, which must be there, and `end` when the input is over.
class DriverLines {
  public:
    explicit DriverLines(std::function<void(const std::string&)> obey,
                         std::function<void()> end = QCoreApplication::quit)
        : obey_(std::move(obey)), end_(std::move(end)) {
        QObject::connect(&input_, &QSocketNotifier::activated, [this] { read(); });
    }

  private:
    void read() {
        char block[4096];
        const auto got = ::read(STDIN_FILENO, block, sizeof block);
        if (got <= 0) return end_();
        pending_.append(block, static_cast<std::size_t>(got));
        for (auto end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
            const auto line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            obey_(line);
        }
    }

    const std::function<void(const std::string&)> obey_;
    const std::function<void()> end_;
    std::string pending_;
    QSocketNotifier input_{STDIN_FILENO, QSocketNotifier::Read};
};

}  // namespace sonra::test
