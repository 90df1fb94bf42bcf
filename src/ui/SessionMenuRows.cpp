#include "ui/SessionMenuRows.h"

#include <utility>

#include "frame/Text.h"
#include "ui/AttachCandidates.h"
#include "ui/HarnessBadge.h"
#include "ui/RelativeTime.h"

namespace sonra::menu {
namespace {

constexpr std::size_t textLimit = 60;
constexpr std::size_t textLimitBesideBranch = 44;

using Role = MenuText::Role;

std::string shortId(const std::string& id) {
    return std::string(text::prefix(id, 8));
}

std::string shortened(const std::string& whole, std::size_t limit) {
    const auto start = text::prefix(whole, limit);
    return start.size() == whole.size() ? whole : std::string(start) + "…";
}

void append(std::vector<MenuText>& title, std::string piece, Role role) {
    title.push_back({std::move(piece), role, {}});
}

void appendBranch(std::vector<MenuText>& title, const std::string& branch) {
    if (branch.empty()) return;
    // A chip keeps its own distance.
    const bool afterText = title.back().role == Role::label;
    append(title, (afterText ? " ⎇ " : "⎇ ") + branch, Role::tertiary);
}

std::vector<MenuText> attachTitle(const DiscoveredRow& row, double nowMs, bool showShortId) {
    const auto& said = row.title.empty() ? row.lastText : row.title;
    const auto folder = folderOf(row.cwd);
    const bool isBare = folder.empty() && said.empty();

    std::vector<MenuText> title;
    if (isRecent(row.mtimeMs, nowMs)) append(title, "● ", Role::activeDot);
    for (auto& piece : harnessBadge(row.source, isBare ? shortId(row.id) : folder))
        title.push_back(std::move(piece));
    appendBranch(title, row.branch);
    if (!said.empty()) {
        const auto* gap = !folder.empty() ? "  ·  " : row.branch.empty() ? "" : " ";
        const auto limit = row.branch.empty() ? textLimit : textLimitBesideBranch;
        append(title, gap + shortened(said, limit), Role::label);
    }
    if (showShortId) append(title, " (" + shortId(row.id) + ")", Role::tertiary);
    return title;
}

std::string activity(const DiscoveredRow& row, double nowMs) {
    if (isRecent(row.mtimeMs, nowMs)) return "active (last ~15 min)";
    const auto age = relativeTime(row.mtimeMs, nowMs);
    return age.empty() ? "last activity unknown" : "last activity " + age + " ago";
}

std::string attachToolTip(const DiscoveredRow& row, double nowMs) {
    std::string tip = row.id + "\nsource: " + row.source + "\ncwd: " + row.cwd;
    if (!row.branch.empty()) tip += "\nbranch: " + row.branch;
    tip += "\n" + activity(row, nowMs) + "\n\n";
    tip += row.lastText.empty() ? "(no assistant text yet)" : row.lastText;
    return tip + "\n\nClick to attach.";
}

}  // namespace

MenuRow makeAttachRow(const DiscoveredRow& row, double nowMs, bool showShortId,
                      std::function<void()> onClick) {
    MenuRow made;
    made.id = "attach:" + row.id;
    made.title = attachTitle(row, nowMs, showShortId);
    made.trailing = relativeTime(row.mtimeMs, nowMs);
    made.toolTip = attachToolTip(row, nowMs);
    made.onClick = std::move(onClick);
    return made;
}

std::vector<MenuText> narratingRowTitle(const AttachedSession& session) {
    const auto folder = folderOf(session.cwd);
    auto title = harnessBadge(session.source, folder.empty() ? shortId(session.id) : folder);
    appendBranch(title, session.branch);
    append(title, "  " + shortId(session.id), Role::tertiary);
    return title;
}

}  // namespace sonra::menu
