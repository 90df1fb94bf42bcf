#pragma once

#include <memory>

#include "linux/PulseConnection.h"
#include "platform/FilePlayer.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Opens files for playing on the sound server.
///
/// The connection is shared with whoever else speaks to the server, and outlives the players. An
/// open fails with the file's own error or the server's; the next one tries again. Main thread
/// only.
class PulseFilePlayerFactory : public FilePlayerFactory {
  public:
    PulseFilePlayerFactory(MainLoop& loop, std::shared_ptr<PulseConnection> connection);

    [[nodiscard]] Opened open(const std::string& path, FinishedCallback onFinished) override;

  private:
    MainLoop& loop_;
    const std::shared_ptr<PulseConnection> connection_;
};

}  // namespace sonra
