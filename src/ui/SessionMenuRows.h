#pragma once

#include <functional>
#include <string>
#include <vector>

#include "frame/SessionRecords.h"
#include "platform/StatusItem.h"

namespace sonra::menu {

/// The row with which a session is attached: whose it is, where it runs and what it last said.
/// `showShortId` tells it from another row of the same folder and agent; `nowMs` in milliseconds
/// since the epoch. Pure.
MenuRow makeAttachRow(const DiscoveredRow& row, double nowMs, bool showShortId,
                      std::function<void()> onClick);

/// The title of the row of a session that is being narrated. Pure.
std::vector<MenuText> narratingRowTitle(const AttachedSession& session);

}  // namespace sonra::menu
