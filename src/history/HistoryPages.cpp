#include "history/HistoryPages.h"

#include "history/SessionHistory.h"

namespace sonra {
namespace {

class SessionHistoryPages : public HistoryPages {
  public:
    SessionHistoryPages(const std::string& transcript, HistorySource source)
        : history_(transcript, source, SessionHistory::defaultChunkBytes) {}

    std::vector<HistoryMessage> loadOlder(int limit) override { return history_.loadOlder(limit); }
    [[nodiscard]] bool isExhausted() const override { return history_.isExhausted(); }

  private:
    SessionHistory history_;
};

}  // namespace

std::unique_ptr<HistoryPages> openSessionHistory(const std::string& transcript,
                                                 HistorySource source) {
    return std::make_unique<SessionHistoryPages>(transcript, source);
}

}  // namespace sonra
