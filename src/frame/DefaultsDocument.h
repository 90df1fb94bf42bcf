#pragma once

#include <string>
#include <string_view>

#include "frame/Json.h"
#include "platform/UserDefaults.h"

namespace sonra {

/// The user's small settings, in one JSON document in the user's configuration directory.
///
/// Main thread only. Other processes of the program use the same document, so it is read anew each
/// time, and replaced whole at each change; of two at the same moment the later wins. Keys that
/// nobody here knows stay. A document that is no JSON object counts as empty and is set aside as
/// `<path>.unreadable` before it is replaced; what can't be stored is logged and dropped.
class DefaultsDocument : public UserDefaults {
  public:
    /// `$XDG_CONFIG_HOME/Sonra/defaults.json`, or in `$HOME/.config` where that variable holds no
    /// absolute path.
    static std::string defaultPath();

    explicit DefaultsDocument(std::string path = defaultPath());

    [[nodiscard]] std::optional<double> number(std::string_view key) const override;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const override;
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const override;
    void set(std::string_view key, double value) override;
    void set(std::string_view key, bool value) override;
    void set(std::string_view key, const std::string& value) override;
    void remove(std::string_view key) override;

  private:
    [[nodiscard]] Json read() const;
    void change(std::string_view key, const Json& value);
    void setAside(const std::string& bytes) const;
    void store(const Json& document) const;

    const std::string path_;
};

}  // namespace sonra
