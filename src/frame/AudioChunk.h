#pragma once

#include <string>

namespace sonra {

/// One finished piece of speech on its way to the loudspeaker: a sound file, the words in it, and
/// whose they are.
struct AudioChunk {
    std::string url;  ///< absolute path of the sound file
    std::string text;
    std::string title;
    std::string artist;
    std::string albumLine;
    std::string sessionId;
    std::string messageId;
    bool ephemeral = false;  ///< the file belongs to the audio queue, which removes it when done

    bool operator==(const AudioChunk&) const = default;
};

}  // namespace sonra
