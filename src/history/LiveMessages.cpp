#include "history/LiveMessages.h"

namespace sonra {

bool LiveMessages::add(const std::string& messageId) {
    if (!known_.insert(messageId).second) return false;
    ids_.push_back(messageId);
    focused_.valid = false;
    return true;
}

void LiveMessages::assign(const std::string& messageId, const std::string& sessionId) {
    auto& session = sessions_[messageId];
    if (session == sessionId) return;
    session = sessionId;
    focused_.valid = false;
}

void LiveMessages::setFocus(const std::string& sessionId) {
    if (focus_ == sessionId) return;
    focus_ = sessionId;
    focused_.valid = false;
}

void LiveMessages::clear() {
    *this = LiveMessages();
}

const std::vector<std::string>& LiveMessages::focusedIds() const {
    return focused().ids;
}

bool LiveMessages::isFocused(const std::string& messageId) const {
    return focused().set.contains(messageId);
}

const std::string& LiveMessages::sessionOf(const std::string& messageId) const {
    const auto found = sessions_.find(messageId);
    return found == sessions_.end() ? focus_ : found->second;
}

const LiveMessages::Focused& LiveMessages::focused() const {
    if (focused_.valid) return focused_;
    focused_ = {};
    if (!focus_.empty())
        for (const auto& id : ids_)
            if (sessionOf(id) == focus_) focused_.ids.push_back(id);
    if (focused_.ids.empty()) focused_.ids = ids_;
    focused_.set = {focused_.ids.begin(), focused_.ids.end()};
    focused_.valid = true;
    return focused_;
}

}  // namespace sonra
