#pragma once

#include <string>
#include <string_view>

/// Turns the Markdown of a reply into text that can be listened to: no code, no link targets, no
/// marks.
///
/// Only marks go: words, and the spaces around what vanished, stay as they are. A pure function of
/// time linear in the text, any thread, never fails and never logs.
namespace sonra::TextCleaner {

/// May be empty, as when the text was nothing but an image.
std::string cleanForSpeech(std::string_view text);

}  // namespace sonra::TextCleaner
