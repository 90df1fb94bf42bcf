#include "frame/Environment.h"

#include <unistd.h>

#include <string_view>

namespace sonra {

Environment ownEnvironment() {
    Environment variables;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto equals = text.find('=');
        // Of a name that stands twice, the first counts, as for getenv.
        if (equals != std::string_view::npos)
            variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    return variables;
}

}  // namespace sonra
