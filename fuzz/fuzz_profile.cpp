// A pronunciation profile with any content: loaded, compiled, and applied to a text made of the
// same bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "speech/Lexicon.h"

namespace {

/// One directory for the process, kept in memory where the system has a place for that.
const std::string& directory() {
    static const std::string path = [] {
        std::string name = std::filesystem::is_directory("/dev/shm") ? "/dev/shm/profileXXXXXX"
                                                                     : "/tmp/profileXXXXXX";
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        std::atexit([] { std::filesystem::remove_all(directory()); });
        return name;
    }();
    return path;
}

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using sonra::Lexicon;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::ofstream(Lexicon::profilePath(directory()), std::ios::binary) << bytes;

    const auto entries = Lexicon::load(directory());
    require(entries.size() <= Lexicon::maxEntries && Lexicon::sanitize(entries) == entries);
    const auto compiled = Lexicon::compile(entries);
    require(compiled.has_value() == !entries.empty());
    const auto spoken = Lexicon::apply(bytes, compiled);
    if (!compiled) require(spoken == bytes);
    for (const auto& entry : entries) static_cast<void>(Lexicon::apply(entry.match, compiled));
    return 0;
}
