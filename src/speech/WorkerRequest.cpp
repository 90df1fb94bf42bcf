#include "speech/WorkerRequest.h"

#include "frame/Json.h"
#include "frame/Text.h"

namespace sonra {

std::string WorkerRequest::line() const {
    // The speed is a text in this protocol, so that no reader rounds it.
    const Json object{{"type", "synth_file"},
                      {"id", id},
                      {"text", text},
                      {"voice", voice},
                      {"speed", sonra::text::decimal(speed)},
                      {"outWav", outWav}};
    return json::dump(object) + "\n";
}

}  // namespace sonra
