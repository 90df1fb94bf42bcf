#include "control/IPCServer.h"
#include "frame/Log.h"
#include "frame/Text.h"
#include "platform/SystemLog.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace sonra;

void require(bool holds) {
    if (!holds) std::abort();
}

/// True if `line` is one object in which every string and bracket is closed: what junk from a
/// client could break. Far cheaper than a parser, which would take most of the run.
bool isWholeObject(std::string_view line) {
    int depth = 0;
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (static_cast<unsigned char>(c) < 0x20) return false;
        if (quoted && c == '\\') ++i;
        if (c == '"') quoted = !quoted;
        if (!quoted && (c == '{' || c == '[')) ++depth;
        if (!quoted && (c == '}' || c == ']') && --depth == 0) return i + 1 == line.size();
    }
    return false;
}

/// Counts the records that tell what became of a line, and insists that each is whole.
class RecordCounter : public SystemLog {
  public:
    void write(Severity /*severity*/, std::string_view /*category*/,
               std::string_view line) override {
        require(isWholeObject(line) && text::isUtf8(line));
        // A client's text can't forge these: its quotes are escaped in the record.
        const auto says = [&](std::string_view message) {
            return line.find("\"msg\":\"" + std::string(message) + "\"") != std::string_view::npos;
        };
        require(!says("log encode failed"));
        if (says("ipc message")) ++accepted;
        if (says("ipc malformed json") || says("ipc proto mismatch, ignoring")) ++dropped;
    }

    std::ptrdiff_t accepted = 0;
    std::ptrdiff_t dropped = 0;
};

/// A loop with room for the one watch of the one client, which the target fires itself.
class OneWatchLoop : public MainLoop {
  public:
    void post(std::function<void()> work) override { work(); }
    LoopHandle after(Duration /*delay*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle every(Duration /*interval*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle watch(int /*fd*/, Interest /*interest*/, std::function<void()> work) override {
        work_ = std::move(work);
        return LoopHandle([this] { work_ = nullptr; });
    }
    [[nodiscard]] TimePoint now() const override { return {}; }
    /// False if nothing is watched any more.
    bool fire() const {
        if (const auto work = work_) work();
        return work_ != nullptr;
    }

  private:
    std::function<void()> work_;
};

RecordCounter& counter() {
    static const auto instance = [] {
        auto made = std::make_shared<RecordCounter>();
        Log::Options options;
        options.service = "fuzz";
        options.systemLog = made;
        Log::setShared(Log(std::move(options)));
        return made;
    }();
    return *instance;
}

/// Every argument stands at the top level, and nothing was lost.
void checkMessage(const Json& message) {
    require(message.is_object());
    const auto proto = json::intAt(message, "proto");
    require(proto == 1 || proto == 2);
    const Json* args = json::find(message, "args");
    if (args == nullptr || !args->is_object()) return;
    for (const auto& [key, value] : args->items()) require(message.contains(key));
}

/// Sends `stream` to the server in pieces of `piece` bytes; true if the client is there at the end.
bool deliver(const OneWatchLoop& loop, int fd, std::string_view stream, std::size_t piece) {
    while (!stream.empty()) {
        const auto part = stream.substr(0, piece);
        require(send(fd, part.data(), part.size(), MSG_NOSIGNAL) ==
                static_cast<ssize_t>(part.size()));
        if (!loop.fire()) return false;
        stream.remove_prefix(part.size());
    }
    return true;
}

}  // namespace

/// The first byte is the size of the pieces (0: the whole at once); the rest is what a client
/// sends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    RecordCounter& records = counter();
    records.accepted = records.dropped = 0;
    const std::string_view stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::ptrdiff_t dispatched = 0;
    OneWatchLoop loop;
    IPCServer server(loop, "");
    server.onCommand = [&](const Json& message) {
        checkMessage(message);
        ++dispatched;
    };
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0);
    const UniqueFd client(ends[0]);
    server.attachClient(UniqueFd(ends[1]));
    // One read takes up to 8192 bytes; larger pieces would wait for the next event.
    const std::size_t piece = data[0] == 0 ? 8192 : data[0];
    require(deliver(loop, client.get(), stream, piece));
    require(dispatched == records.accepted);
    require(records.accepted + records.dropped == std::count(stream.begin(), stream.end(), '\n'));
    const auto rest = stream.size() - (stream.rfind('\n') + 1);
    require(server.bufferedBytes(ends[1]) == rest);
    return 0;
}
