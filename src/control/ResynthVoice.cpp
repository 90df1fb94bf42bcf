#include "control/ResynthVoice.h"

#include "control/SpokenFile.h"
#include "frame/Log.h"
#include "ingest/TextCleaner.h"

namespace sonra {

ResynthProvider::Synth makeResynthSynth(std::shared_ptr<SpeechEngine> engine,
                                        std::function<SpeechConfig()> config) {
    const auto log =
        Log::shared().child({{"class", "AppCoordinator"}, {"method", "makeResynthSynth"}});
    return [engine = std::move(engine), config = std::move(config), log](const std::string& text,
                                                                         const std::string& path) {
        const auto spoken = TextCleaner::cleanForSpeech(text);
        if (spoken.empty()) return false;
        const Json input{{"text", text}};
        if (const auto error = speakToFile(*engine, spoken, config(), path)) {
            log.warn("resynth produced no audio", *error, {{"input", input}});
            return false;
        }
        log.info("resynth done", {{"input", input}, {"result", {{"path", path}}}});
        return true;
    };
}

}  // namespace sonra
