#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace sonra::test {

/// A fresh, short-named directory that is removed with everything in it at the end of its scope.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  private:
    std::string path_;
};

/// Sets an environment variable for a scope and puts back what was there.
class ScopedEnv {
  public:
    ScopedEnv(std::string name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    std::string name_;
    std::string before_;
    bool wasSet_;
};

/// A TempDir that is HOME for its scope, with `.claude/tts` made in it.
class TempHome : public TempDir {
  public:
    TempHome();
    std::string shared() const { return path() + "/.claude/tts"; }

  private:
    ScopedEnv home_;
    ScopedEnv cache_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view content);
void appendFile(const std::string& path, std::string_view content);

}  // namespace sonra::test
