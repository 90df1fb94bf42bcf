#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "search/HitField.h"
#include "search/SessionMeta.h"

namespace sonra {

/// A folder whose name holds what was asked for, with all sessions in it that were found, the best
/// first.
struct ProjectHit {
    std::string name;  ///< the folder's name as it was written
    std::vector<std::shared_ptr<const SessionMeta>> sessions;
    int score = 0;
};

/// One session. Never without it.
struct SessionHit {
    std::shared_ptr<const SessionMeta> session;
    HitField field = HitField::project;
    std::vector<int> matchedIndices;  ///< UTF-16 offsets into the field's lower case, ascending
    int score = 0;
};

/// One row of a search's result.
using SearchHit = std::variant<ProjectHit, SessionHit>;

}  // namespace sonra
