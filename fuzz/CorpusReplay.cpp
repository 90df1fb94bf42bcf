// Runs a fuzz target's entry point over the files, and the files of the directories, named on the
// command line.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesOf(const char* argument) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_regular_file(argument)) return {argument};
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argument, error))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    // A crash is then easy to tell from its last line.
    std::cout << path.filename().string() << std::endl;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& path : filesOf(argv[i])) {
            replay(path);
            ++count;
        }
    }
    std::cout << count << " inputs replayed\n";
    if (count == 0) std::cerr << "no corpus to replay\n";
    return count == 0 ? 1 : 0;
}
