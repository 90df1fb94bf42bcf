#include "control/AgentTranscript.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "frame/Json.h"
#include "ingest/OpenCodeFiles.h"
#include "ingest/OpenCodeStore.h"

namespace sonra::test {
namespace {

using Path = const std::string&;
using Text = const std::string&;

/// Long enough ago that nobody can still be writing, and later with each reply.
std::int64_t writtenAt(int number) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    static const auto start =
        std::chrono::floor<std::chrono::milliseconds>(now).count() - 3'600'000;
    return start + number * 1000;
}

std::string secondOf(int number) {
    return "0" + std::to_string(number);
}

void appendAt(Path path, int number, const std::string& content) {
    appendFile(path, content);
    setModified(path, writtenAt(number));
}

void appendLines(Path path, int number, const std::vector<Json>& lines) {
    std::string content;
    for (const auto& line : lines) content += json::dump(line) + "\n";
    appendAt(path, number, content);
}

void change(Path path, int number, const std::function<void(Json&)>& add) {
    auto document = json::parse(readFile(path)).value_or(Json());
    add(document);
    writeFileAt(path, writtenAt(number), json::dump(document));
}

void beginEmpty(Path path) {
    writeFile(path, "");
}

void beginDirectory(Path path) {
    std::filesystem::create_directories(path);
}

void addCodexResponse(Path path, int number, Text text) {
    appendLines(path, number,
                {{{"type", "response_item"},
                  {"timestamp", "2026-05-02T09:09:" + secondOf(number) + ".000Z"},
                  {"payload",
                   {{"type", "message"},
                    {"role", "assistant"},
                    {"content", Json::array({{{"type", "output_text"}, {"text", text}}})}}}}});
}

void addCodexItem(Path path, int number, Text text) {
    appendLines(path, number,
                {{{"type", "event_msg"},
                  {"timestamp", "2026-05-02T09:09:" + secondOf(number) + ".000Z"},
                  {"payload",
                   {{"type", "item_completed"},
                    {"turn_id", std::to_string(number)},
                    {"item",
                     {{"type", "AgentMessage"},
                      {"id", "i-" + std::to_string(number)},
                      {"content", Json::array({{{"type", "Text"}, {"text", text}}})}}}}}}});
}

void addPi(Path path, int number, Text text) {
    appendLines(path, number,
                {{{"type", "message"},
                  {"id", "pi-" + std::to_string(number)},
                  {"timestamp", "2026-06-04T07:20:00.000Z"},
                  {"message",
                   {{"role", "assistant"},
                    {"content", Json::array({{{"type", "text"}, {"text", text}}})}}}}});
}

Json geminiReply(int number, Text text) {
    return {{"id", "g-" + std::to_string(number)},
            {"type", "gemini"},
            {"timestamp", "2026-05-03T08:09:00.000Z"},
            {"content", text}};
}

void beginGeminiDocument(Path path) {
    writeFile(path, R"({"messages":[{"type":"user","content":"hello"}]})");
}

void addToGeminiDocument(Path path, int number, Text text) {
    change(path, number,
           [&](Json& document) { document["messages"].push_back(geminiReply(number, text)); });
}

void addGeminiLine(Path path, int number, Text text) {
    appendLines(path, number, {geminiReply(number, text)});
}

void beginGeminiChanges(Path path) {
    appendLines(path, 0, {{{"sessionId", "s"}, {"projectHash", "p"}, {"kind", "main"}}});
}

void addGeminiChanges(Path path, int number, Text text) {
    appendLines(path, number,
                {geminiReply(number, ""),
                 geminiReply(number, text),
                 {{"$set", {{"lastUpdated", "2026-05-03T08:09:00.000Z"}}}}});
}

void beginCline(Path path) {
    writeFile(path, R"([{"role":"user","content":"hello"}])");
}

void addCline(Path path, int number, Text text) {
    change(path, number, [&](Json& document) {
        document.push_back({{"role", "assistant"},
                            {"ts", 2000 + number},
                            {"content", Json::array({{{"type", "text"}, {"text", text}}})}});
    });
}

void beginClineMessages(Path path) {
    writeFile(path, R"({"version":"1","messages":[{"id":"c-0","role":"user","content":"hello"}]})");
}

void addClineMessage(Path path, int number, Text text) {
    change(path, number, [&](Json& document) {
        document["messages"].push_back(
            {{"id", "c-" + std::to_string(number)},
             {"role", "assistant"},
             {"content", Json::array({{{"type", "text"}, {"text", text}}})}});
    });
}

void beginAider(Path path) {
    writeFile(path, "# aider chat started at 2026-05-03 07:59:00\n");
}

void addAiderResponse(Path path, int number, Text text) {
    appendAt(path, number,
             "\n#### 2026-05-03 08:00:" + secondOf(number) +
                 "\n> please edit foo.py\n\n#### aider response\n" + text + "\n");
}

void addAiderReply(Path path, int number, Text text) {
    appendAt(path, number, "\n#### please edit foo.py\n\n" + text + "\n\n> Applied edit  \n");
}

void addOpenCodeFile(Path path, int number, Text text) {
    const auto id = "o-" + std::to_string(number);
    writeFileAt(path + "/" + id + ".json", writtenAt(number),
                json::dump({{"id", id}, {"role", "assistant"}, {"content", text}}));
}

void addOpenCodePart(Path path, int number, Text text) {
    const auto id = "msg_" + std::to_string(number);
    const auto ms = writtenAt(number);
    const auto parts = std::filesystem::path(path).parent_path().parent_path() / "part" / id;
    writeFileAt(parts / "prt.json", ms,
                json::dump({{"id", "prt" + id},
                            {"messageID", id},
                            {"type", "text"},
                            {"text", text},
                            {"time", {{"start", ms}, {"end", ms}}}}));
    writeFileAt(
        path + "/" + id + ".json", ms,
        json::dump(
            {{"id", id}, {"role", "assistant"}, {"time", {{"created", ms}, {"completed", ms}}}}));
}

void beginOpenCodeStore(Path path) {
    const OpenCodeStore store(path);
}

void addToOpenCodeStore(Path path, int number, Text text) {
    OpenCodeStore store(path);
    const auto id = "msg_" + std::to_string(number);
    store.message(id, OpenCodeStore::reply(writtenAt(number)));
    store.part("prt_" + id, id, OpenCodeStore::text(text, writtenAt(number)));
}

}  // namespace

std::vector<AgentShape> agentShapes() {
    return {
        {"CodexResponses", "codex", "codex/rollout-1.jsonl", true, beginEmpty, addCodexResponse},
        {"CodexItems", "codex", "codex/rollout-2.jsonl", true, beginEmpty, addCodexItem},
        {"Pi", "pi", "pi/1_2.jsonl", true, beginEmpty, addPi},
        {"GeminiDocument", "gemini", "gemini/1.json", true, beginGeminiDocument,
         addToGeminiDocument},
        {"GeminiLines", "gemini", "gemini/2.jsonl", true, beginEmpty, addGeminiLine},
        {"GeminiChanges", "gemini", "gemini/3.jsonl", true, beginGeminiChanges, addGeminiChanges},
        {"ClineArray", "cline", "cline/1.json", false, beginCline, addCline},
        {"ClineMessages", "cline", "cline/1.messages.json", false, beginClineMessages,
         addClineMessage},
        {"AiderResponses", "aider", "aider/history.md", true, beginAider, addAiderResponse},
        {"AiderChat", "aider", "aider/chat.md", true, beginAider, addAiderReply},
        {"OpenCodeFiles", "opencode", "opencode/messages", false, beginDirectory, addOpenCodeFile},
        {"OpenCodeParts", "opencode", "opencode/storage/message/ses_1", false, beginDirectory,
         addOpenCodePart},
        {"OpenCodeStore", "opencode", "opencode/opencode.db", false, beginOpenCodeStore,
         addToOpenCodeStore, "#ses_1"},
    };
}

}  // namespace sonra::test
