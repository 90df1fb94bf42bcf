#pragma once

#include <optional>
#include <string>
#include <utility>

namespace sonra {

/// Where the audio of a request goes: into a file, or straight to the loudspeaker.
class SynthesisSink {
  public:
    static SynthesisSink file(std::string url) { return SynthesisSink(std::move(url)); }
    static SynthesisSink live() { return SynthesisSink(std::nullopt); }

    /// The file's absolute path; absent for `live`.
    [[nodiscard]] const std::optional<std::string>& fileUrl() const { return url_; }

    bool operator==(const SynthesisSink&) const = default;

  private:
    explicit SynthesisSink(std::optional<std::string> url) : url_(std::move(url)) {}

    std::optional<std::string> url_;
};

}  // namespace sonra
