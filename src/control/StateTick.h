#pragma once

#include "control/SessionRows.h"
#include "frame/Json.h"
#include "frame/ServiceState.h"

namespace sonra {

/// One reading of the shared document, handed through a whole tick so that its consumers don't each
/// read the file. A missing or unreadable document gives the default settings and no sessions, and
/// says nothing about what is attached.
struct StateTick {
    bool hasDocument = false;
    ServiceState state;
    SessionRows sessions;

    static StateTick read();
};

}  // namespace sonra
