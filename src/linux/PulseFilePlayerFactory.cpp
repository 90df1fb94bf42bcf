#include "linux/PulseFilePlayerFactory.h"

#include <utility>

#include "frame/ThreadAffinity.h"
#include "linux/PulseFilePlayer.h"
#include "linux/SoundFileReader.h"

namespace sonra {

PulseFilePlayerFactory::PulseFilePlayerFactory(MainLoop& loop,
                                               std::shared_ptr<PulseConnection> connection)
    : loop_(loop), connection_(std::move(connection)) {}

FilePlayerFactory::Opened PulseFilePlayerFactory::open(const std::string& path,
                                                       FinishedCallback onFinished) {
    SONRA_ASSERT_MAIN_THREAD();
    auto file = SoundFileReader::open(path);
    if (!file.reader) return {nullptr, file.error};
    auto player = std::make_unique<PulseFilePlayer>(loop_, connection_, std::move(file.reader),
                                                    std::move(onFinished));
    if (const auto error = player->prepare()) return {nullptr, "sound server: " + *error};
    return {std::move(player), {}};
}

}  // namespace sonra
