#pragma once

#include <string>

namespace sonra::test {

/// Lines of a Claude Code transcript, with their line feeds.
std::string assistantLine(const std::string& id, const std::string& text);
std::string userLine(const std::string& text);

}  // namespace sonra::test
