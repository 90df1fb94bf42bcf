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
struct Scratch {
    std::string path =
        std::filesystem::is_directory("/dev/shm") ? "/dev/shm/profileXXXXXX" : "/tmp/profileXXXXXX";

    Scratch() {
        if (::mkdtemp(path.data()) == nullptr) std::abort();
    }
    ~Scratch() { std::filesystem::remove_all(path); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
};

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using sonra::Lexicon;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    static const Scratch scratch;
    const std::string& dir = scratch.path;
    std::ofstream(Lexicon::profilePath(dir), std::ios::binary) << bytes;

    const auto entries = Lexicon::load(dir);
    require(entries.size() <= Lexicon::maxEntries && Lexicon::sanitize(entries) == entries);
    const auto compiled = Lexicon::compile(entries);
    require(compiled.has_value() == !entries.empty());
    const auto spoken = Lexicon::apply(bytes, compiled);
    if (!compiled) require(spoken == bytes);
    for (const auto& entry : entries) static_cast<void>(Lexicon::apply(entry.match, compiled));
    return 0;
}
