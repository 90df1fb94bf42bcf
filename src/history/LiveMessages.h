#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace sonra {

/// Which messages were heard live, of which session each is, and which session the listener is in.
///
/// Main thread only. Ids are never pruned: a message without audio can still be gone back to.
class LiveMessages {
  public:
    /// Adds a message that is heard for the first time; false if it was heard before.
    bool add(const std::string& messageId);
    /// Notes the session of a message, whether it was heard or not.
    void assign(const std::string& messageId, const std::string& sessionId);
    void setFocus(const std::string& sessionId);
    void clear();

    /// The session that scrubbing stays inside; may be empty.
    [[nodiscard]] const std::string& focus() const { return focus_; }
    /// In order of their first chunk, oldest first.
    [[nodiscard]] const std::vector<std::string>& ids() const { return ids_; }
    /// Those of the session in focus; all of them if there are none, so that an unknown focus
    /// strands nobody.
    [[nodiscard]] const std::vector<std::string>& focusedIds() const;
    [[nodiscard]] bool isFocused(const std::string& messageId) const;
    /// The message's session, or failing that the one in focus.
    [[nodiscard]] const std::string& sessionOf(const std::string& messageId) const;

  private:
    struct Focused {
        bool valid = false;
        std::vector<std::string> ids;
        std::unordered_set<std::string> set;
    };
    const Focused& focused() const;

    std::vector<std::string> ids_;
    std::unordered_set<std::string> known_;
    std::unordered_map<std::string, std::string> sessions_;
    std::string focus_;
    mutable Focused focused_;  ///< recomputed after a change only
};

}  // namespace sonra
