#pragma once

#include <string>
#include <string_view>

/// What becomes of Cline's words before they are a message. Pure functions over UTF-8, any thread,
/// never fail.
namespace sonra::ClineText {

/// `text` without the tool calls that Cline writes into it as XML, each white space in it one
/// blank, and none at its ends. Calls lose their content; questions and results keep it.
std::string spokenPart(std::string_view text);

/// `text` with tool calls replaced by blanks, and the tags around questions and results as well.
std::string stripToolUseXml(std::string text);

/// `text` with every run of white space replaced by one blank.
std::string collapseWhitespace(std::string_view text);

/// The number as JavaScript writes it, since ids are made from it there too; empty for 0.
std::string numberText(double number);

}  // namespace sonra::ClineText
