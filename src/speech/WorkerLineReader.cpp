#include "speech/WorkerLineReader.h"

namespace sonra {

void WorkerLineReader::append(std::string_view bytes, const LineCallback& onLine) {
    for (auto end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        keep(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
        if (!skipping_) onLine(buf_);
        buf_.clear();
        skipping_ = false;
    }
    keep(bytes);
}

void WorkerLineReader::reset() {
    buf_.clear();
    skipping_ = false;
}

void WorkerLineReader::keep(std::string_view part) {
    if (buf_.size() + part.size() > maxLine_) {
        skipping_ = true;
        std::string().swap(buf_);
    }
    if (!skipping_) buf_.append(part);
}

}  // namespace sonra
