#pragma once

#include <memory>

#include "platform/GlobalHotkeys.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Global key chords as this session can have them: from the portal under Wayland, where the X
/// server sees only the keys of its own windows, from the X server else. Main thread; the loop must
/// outlive them. Needs the application object.
std::unique_ptr<GlobalHotkeys> makeGlobalHotkeys(MainLoop& loop);

}  // namespace sonra
