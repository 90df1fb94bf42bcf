#pragma once

#include <memory>
#include <string>

#include "frame/Json.h"
#include "frame/UniqueFd.h"

namespace sonra {

/// Sends commands to a caption server, one JSON object a line.
///
/// Main thread only. Never waits for the server once connected, and errors are ignored: captions
/// aren't worth a stutter. While the server doesn't keep up, what it hasn't taken of a line stays
/// here until the next `send`, and lines that come meanwhile are dropped whole.
class CaptionClient {
  public:
    /// Takes at most about a second. Null if nobody listens at `socketPath`.
    static std::unique_ptr<CaptionClient> connect(const std::string& socketPath);

    void send(const Json& command);

  private:
    explicit CaptionClient(UniqueFd fd) : fd_(std::move(fd)) {}
    void flush();

    UniqueFd fd_;
    std::string unsent_;
};

}  // namespace sonra
