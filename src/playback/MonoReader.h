#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sonra {

/// The samples of a sound file, channels mixed to one, read forward in blocks so that a long file
/// needs no more memory than a short one. For one thread. Only regular files are opened; what can't
/// be decoded ends the file.
class MonoReader {
  public:
    /// Null if the file can't be read as sound.
    static std::unique_ptr<MonoReader> open(const std::string& path);
    ~MonoReader();
    MonoReader(const MonoReader&) = delete;
    MonoReader& operator=(const MonoReader&) = delete;

    [[nodiscard]] int sampleRate() const;
    /// Appends the next block to `samples`; false at the end of the file, with nothing appended.
    bool readBlock(std::vector<float>& samples);

  private:
    struct File;
    explicit MonoReader(std::unique_ptr<File> file);

    std::unique_ptr<File> file_;
    std::vector<float> interleaved_;
};

}  // namespace sonra
