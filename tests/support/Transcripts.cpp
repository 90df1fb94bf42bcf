#include "support/Transcripts.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "frame/Home.h"

namespace sonra::test {

std::vector<Transcript> transcripts(const std::string& agent, const std::string& extension) {
    namespace fs = std::filesystem;
    std::string root = environmentValue("SONRA_TRANSCRIPTS");
    if (root.empty()) root = SONRA_SOURCE_DIR "/../shared/transcripts";
    if (!fs::is_directory(fs::path(root) / agent)) {
        std::cout << "no transcripts of " << agent << " under " << root << ": skipped\n";
        return {};
    }
    std::vector<Transcript> files;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(root) / agent)) {
        if (entry.is_regular_file() && entry.path().extension() == extension)
            files.push_back(
                {entry.path().lexically_relative(root).string(), entry.path().string()});
    }
    std::ranges::sort(files, {}, &Transcript::name);
    return files;
}

}  // namespace sonra::test
