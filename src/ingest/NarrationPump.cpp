#include "ingest/NarrationPump.h"

#include <utility>

#include "frame/ServiceState.h"
#include "frame/Text.h"
#include "ingest/TextCleaner.h"

namespace sonra {
namespace {

constexpr std::size_t rememberedIds = 4096;
/// Shorter texts are acknowledgements, or messages that were nothing but code or links.
constexpr std::size_t minimumCharacters = 10;
constexpr std::size_t albumLineCharacters = 240;

NarrationPump::NarrationSettings sharedSettings() {
    const auto state = ServiceState::read();
    return {state.muted, state.paused};
}

}  // namespace

NarrationPump::NarrationPump(Synth synth, ChunkCallback recordLive, ChunkCallback enqueue,
                             Settings settings)
    : synth_(std::move(synth)),
      recordLive_(std::move(recordLive)),
      enqueue_(std::move(enqueue)),
      settings_(settings ? std::move(settings) : sharedSettings) {}

/// First in, first out, so that a long session's memory stays bounded: an id that was forgotten
/// counts as new.
bool NarrationPump::rememberIfNew(const std::string& sessionId, const std::string& messageId) {
    const auto [key, isNew] = narratedSet_.insert(sessionId + ":" + messageId);
    if (!isNew) return false;
    if (narratedIds_.size() >= rememberedIds) {
        narratedSet_.erase(narratedSet_.find(*narratedIds_.front()));
        narratedIds_.pop_front();
    }
    narratedIds_.push_back(&*key);
    return true;
}

void NarrationPump::ingest(const std::string& sessionId, const std::string& messageId,
                           std::string_view text) {
    // Remembered before anything can drop the message: what was muted isn't spoken after unmuting.
    if (!rememberIfNew(sessionId, messageId)) return;
    if (settings_().muted) return;
    const std::string cleaned = TextCleaner::cleanForSpeech(text);
    if (text::characterCountUpTo(cleaned, minimumCharacters) < minimumCharacters) return;
    if (onSynthesisStart_) onSynthesisStart_(sessionId, messageId);
    narrate(sessionId, messageId, cleaned);
}

void NarrationPump::narrate(const std::string& sessionId, const std::string& messageId,
                            const std::string& cleaned) {
    const std::string albumLine(text::prefix(cleaned, albumLineCharacters));
    const auto onChunk = [&](const std::string& text, const std::string& wav) {
        const AudioChunk chunk{.url = wav,
                               .text = text,
                               .title = "Claude",
                               .artist = "TTS",
                               .albumLine = albumLine,
                               .sessionId = sessionId,
                               .messageId = messageId,
                               .ephemeral = true};
        // In this order: a chunk is in the history before it can start playing.
        recordLive_(chunk);
        enqueue_(chunk);
    };
    synth_(cleaned, sessionId, messageId, onChunk);
}

}  // namespace sonra
