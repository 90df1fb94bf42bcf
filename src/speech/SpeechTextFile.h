#pragma once

#include <string>
#include <string_view>

namespace sonra {

/// The text of one request, in a file of its own in a directory of its own, both for this user
/// alone. The directory is removed, with whatever else was put into it, at the end of the scope.
class SpeechTextFile {
  public:
    /// A name that isn't taken, in the process's temporary directory: the directory begins with
    /// `prefix`, the file is called "text". Nothing is made yet. Throws std::system_error if there
    /// is no temporary directory.
    static std::string newPath(std::string_view prefix);

    /// Makes both. Throws std::system_error if that fails; an existing directory is a failure too.
    SpeechTextFile(const std::string& path, std::string_view text);
    ~SpeechTextFile();
    SpeechTextFile(const SpeechTextFile&) = delete;
    SpeechTextFile& operator=(const SpeechTextFile&) = delete;

  private:
    void write(const std::string& path, std::string_view text) const;
    void removeDirectory() const;

    std::string directory_;
};

}  // namespace sonra
