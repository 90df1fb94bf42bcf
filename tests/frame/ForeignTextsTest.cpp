#include "frame/ForeignTexts.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace sonra {
namespace {

namespace fs = std::filesystem;

std::string codeOf(const fs::path& path) {
    std::ifstream file(path);
    std::string code;
    for (std::string line; std::getline(file, line);)
        code += line.substr(0, line.find("//")) + '\n';
    return code;
}

/// Other places would have to be found before a wording could be changed.
TEST(ForeignTexts, AreInNoOtherSource) {
    constexpr std::array words{"⌘C", "⌘⇧F", "brew install", "System Settings"};
    int sources = 0;
    for (const auto& entry : fs::recursive_directory_iterator(SONRA_SOURCE_DIR "/src")) {
        const auto name = entry.path().filename().string();
        if (!entry.is_regular_file() || !(name.ends_with(".cpp") || name.ends_with(".h")) ||
            name == "ForeignTexts.h")
            continue;
        ++sources;
        const auto code = codeOf(entry.path());
        for (const auto* const word : words)
            EXPECT_EQ(code.find(word), std::string::npos) << name << " says " << word;
    }
    EXPECT_GT(sources, 100);
}

}  // namespace
}  // namespace sonra
