#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sonra::test {

/// Lines, without line feeds, that two readers of Claude Code's transcripts might take differently.
std::vector<std::string> nastyLines();

/// `count` lines made of the parts of real ones, put together and damaged at random.
std::vector<std::string> randomLines(std::uint32_t seed, int count);

}  // namespace sonra::test
