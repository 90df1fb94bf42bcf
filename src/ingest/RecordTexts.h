#pragma once

#include <string>
#include <string_view>

#include "frame/Json.h"

/// What the agents' JSON records have in common. Pure functions, any thread, never fail.
namespace sonra::RecordTexts {

/// True if the member `key` is exactly this text.
bool isTextAt(const Json& object, std::string_view key, std::string_view text);

/// The member `key` if it is an object, else null.
const Json* objectAt(const Json& object, std::string_view key);

/// The member `key` if it is an array of nothing but objects, else null.
const Json* objectsAt(const Json& object, std::string_view key);

/// The "text" of those elements that are objects, have one, and are of this type, joined with line
/// feeds. An empty `type` means any, and none. Empty if there is no text, as of blank ones.
std::string joined(const Json& elements, std::string_view type = {});

/// "content" as a text, or as an array whose texts are joined; where it is neither, "text". Empty
/// if there is none of them.
std::string contentOrText(const Json& object);

/// The member `key` if it is a text, else empty.
std::string textOrEmpty(const Json& object, std::string_view key);

}  // namespace sonra::RecordTexts
