#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sonra {

/// What the catalogue wants to know of one line of a transcript; what the line lacks is empty. The
/// strings last until the next line is parsed.
struct TranscriptLine {
    enum class Content { none, text, list };

    std::string_view type;
    std::string_view cwd;
    std::string_view gitBranch;
    bool isSidechain = false;
    Content content = Content::none;      ///< the form of the message's content
    std::vector<std::string_view> texts;  ///< the content, or the list's text blocks in order
};

/// Reads lines one after the other with one set of buffers. One thread at a time.
class TranscriptLineParser {
  public:
    /// What must be readable, whatever it is, behind a line.
    static const std::size_t padding;

    TranscriptLineParser();
    ~TranscriptLineParser();
    TranscriptLineParser(const TranscriptLineParser&) = delete;
    TranscriptLineParser& operator=(const TranscriptLineParser&) = delete;

    /// Null if the line isn't a JSON object. Of duplicate keys the last wins.
    const TranscriptLine* parse(std::string_view line);

  private:
    struct Parser;

    const TranscriptLine* parseAgain(std::string_view line);

    std::unique_ptr<Parser> parser_;
    std::string rewritten_;
    TranscriptLine line_;
};

}  // namespace sonra
