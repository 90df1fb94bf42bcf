#include "support/FakeFileWatcher.h"

#include <filesystem>

namespace sonra::test {

struct FakeFileWatcher::Watches {
    struct Armed {
        std::string path;
        Callback onEvents;
        bool live = true;
    };
    std::vector<Armed> all;
};

class FakeFileWatcher::Watch : public FileWatch {
  public:
    Watch(std::shared_ptr<Watches> watches, std::size_t index)
        : watches_(std::move(watches)), index_(index) {}
    ~Watch() override { watches_->all[index_].live = false; }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    std::shared_ptr<Watches> watches_;
    std::size_t index_;
};

FakeFileWatcher::FakeFileWatcher() : watches_(std::make_shared<Watches>()) {}

FakeFileWatcher::~FakeFileWatcher() = default;

std::unique_ptr<FileWatch> FakeFileWatcher::watch(const std::string& path, Callback onEvents) {
    if (refuse_ || !std::filesystem::exists(path)) return nullptr;
    watches_->all.push_back({path, std::move(onEvents)});
    return std::make_unique<Watch>(watches_, watches_->all.size() - 1);
}

int FakeFileWatcher::fire(const std::string& path, FileEvents events) {
    int reported = 0;
    // By index, and with copies: a callback may arm and end watches.
    for (std::size_t i = 0, count = watches_->all.size(); i < count; ++i) {
        if (!watches_->all[i].live || watches_->all[i].path != path) continue;
        const auto onEvents = watches_->all[i].onEvents;
        onEvents(events);
        ++reported;
    }
    return reported;
}

void FakeFileWatcher::fireStale(FileEvents events) {
    for (std::size_t i = 0, count = watches_->all.size(); i < count; ++i) {
        const auto onEvents = watches_->all[i].onEvents;
        onEvents(events);
    }
}

std::vector<std::string> FakeFileWatcher::armed() const {
    std::vector<std::string> paths;
    for (const auto& armed : watches_->all)
        if (armed.live) paths.push_back(armed.path);
    return paths;
}

std::size_t FakeFileWatcher::armings() const {
    return watches_->all.size();
}

}  // namespace sonra::test
