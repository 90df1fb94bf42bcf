#include "ingest/NativeNarration.h"

#include <utility>

namespace sonra::NativeNarration {
namespace {

/// `callback` behind a post to the main thread, with copies of its arguments. An empty one stays
/// empty.
template <typename... Args>
std::function<void(const Args&...)> postedToMain(MainLoop& loop,
                                                 std::function<void(const Args&...)> callback) {
    if (!callback) return callback;
    auto shared = std::make_shared<const std::function<void(const Args&...)>>(std::move(callback));
    return [&loop, shared = std::move(shared)](const Args&... args) {
        loop.post([shared, ... copies = args] { (*shared)(copies...); });
    };
}

}  // namespace

std::unique_ptr<NativeNarrationSession> makeSession(MainLoop& loop, FileWatcher& watcher,
                                                    const LiveTailReader& reader,
                                                    SessionOptions options) {
    if (options.dispatchToMain) {
        options.recordLive = postedToMain(loop, std::move(options.recordLive));
        options.enqueue = postedToMain(loop, std::move(options.enqueue));
        options.onSynthesisStart = postedToMain(loop, std::move(options.onSynthesisStart));
    }
    auto pump =
        std::make_shared<NarrationPump>(std::move(options.synth), std::move(options.recordLive),
                                        std::move(options.enqueue), std::move(options.settings));
    pump->setOnSynthesisStart(std::move(options.onSynthesisStart));
    SessionTailer::Options tailing{.sessionId = std::move(options.sessionId),
                                   .startOffset = options.startOffset,
                                   .pathProvider = std::move(options.pathProvider),
                                   .sink = {},
                                   .offsetPersist = std::move(options.offsetPersist)};
    return std::make_unique<NativeNarrationSession>(loop, watcher, reader, std::move(pump),
                                                    std::move(tailing), options.dispatchToMain);
}

}  // namespace sonra::NativeNarration
