#include "support/TranscriptLines.h"

#include "frame/Json.h"

namespace sonra::test {
namespace {

std::string line(const std::string& type, const std::string& id, const std::string& text) {
    const Json content = Json::array({{{"type", "text"}, {"text", text}}});
    const Json object = {{"type", type},
                         {"uuid", id},
                         {"timestamp", "2026-05-01T10:00:00.000Z"},
                         {"message", {{"id", "m-" + id}, {"content", content}}}};
    return object.dump() + "\n";
}

}  // namespace

std::string assistantLine(const std::string& id, const std::string& text) {
    return line("assistant", id, text);
}

std::string userLine(const std::string& text) {
    return line("user", "user", text);
}

}  // namespace sonra::test
