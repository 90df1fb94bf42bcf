#include <cstdint>
#include <string>

#include "GrowingFile.h"
#include "ingest/PiReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace sonra;
    static const PiReader reader;
    const std::string input(reinterpret_cast<const char*>(data), size);
    fuzz::readInTwoSteps(reader, reader, input, fuzz::cutOf(input));
    return 0;
}
