#pragma once

#include <string>
#include <vector>

namespace sonra::test {

/// A real transcript, with its path relative to the folder of all transcripts.
struct Transcript {
    std::string name;
    std::string path;
};

/// The files of one agent with this extension, sorted by name, from the folder that
/// SONRA_TRANSCRIPTS names. They are kept beside the source tree; where they are absent this says
/// so in one line and gives none.
std::vector<Transcript> transcripts(const std::string& agent, const std::string& extension);

}  // namespace sonra::test
