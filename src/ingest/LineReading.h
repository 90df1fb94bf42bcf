#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ingest/LiveTailReader.h"

/// What readers of line by line transcripts have in common. Any thread, never throws.
namespace sonra::LineReading {

/// `byte` of the file's size.
TailOffset endOf(const std::string& url);

/// The complete lines behind the position `offset`, without their terminators, empty ones left out.
/// A line is returned once its line feed is there; until then the cursor stays at its start.
LiveTailReader::Reading since(const std::string& url, TailOffset offset);

/// A line and where it starts in its file.
struct Line {
    std::string text;
    std::int64_t start;
};

struct Lines {
    std::vector<Line> lines;
    std::int64_t end;  ///< where the next read starts
};

/// As `since`, but tells where the lines are.
Lines linesSince(const std::string& url, std::int64_t position);

/// The complete lines in `bytes`, without their terminators and without empty ones.
std::vector<std::string_view> linesIn(std::string_view bytes);
std::vector<std::string_view> linesIn(std::string&& bytes) = delete;  ///< they would dangle

/// The bytes right before a position in a file, at most `count`; empty if they can't be read.
std::string before(const std::string& url, std::int64_t position, std::int64_t count);

/// The first bytes of a file, at most `count`: for a look at what it is.
std::string beginning(const std::string& url, std::size_t count);

}  // namespace sonra::LineReading
