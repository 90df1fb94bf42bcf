#pragma once

/// The texts that name things of another desktop, in one place: each is used as it stands, and a
/// wording of this desktop's own is one edit here.
namespace sonra::foreigntexts {

inline constexpr auto searchHotkeyFailed = "[search] failed to register ⌘⇧F\n";
inline constexpr auto searchSessionFooter = "↵ attach · ⌘C copy id · esc dismiss";
inline constexpr auto nodeMissing = "Node.js not found (brew install node)";

}  // namespace sonra::foreigntexts
