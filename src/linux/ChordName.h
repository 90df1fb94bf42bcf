#pragma once

#include <string>

#include "platform/GlobalHotkeys.h"

namespace sonra {

/// The chord as keyboards print it, for a person to read: "Super+Shift+F", "Super+[". A key that
/// isn't printed in a way known here keeps X11's name. Any thread.
std::string chordName(const KeyChord& chord);

}  // namespace sonra
