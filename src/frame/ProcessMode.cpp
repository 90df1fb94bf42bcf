#include "frame/ProcessMode.h"

#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"

#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <string_view>

namespace sonra {
namespace {

using Args = std::vector<std::string>;

bool contains(const Args& args, std::string_view word) {
    return std::find(args.begin(), args.end(), word) != args.end();
}

/// The last "--socket" that has a token behind it; empty if there is none.
std::string socketOption(const Args& args) {
    std::string path;
    for (std::size_t i = 1; i + 1 < args.size(); ++i)
        if (args[i] == "--socket") path = args[++i];
    return path;
}

template <typename SocketMode>
ModeDecision socketMode(const Args& args, const std::string& flag) {
    std::string path = socketOption(args);
    if (path.empty()) return EarlyExit{2, flag + " requires --socket <path>\n"};
    return SocketMode{std::move(path)};
}

std::optional<std::int64_t> decimalInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool setVolume(PlayerArgs& player, std::string_view value) {
    const auto percent = decimalInteger(value);
    if (!percent) return false;
    player.volume = static_cast<float>(std::clamp<std::int64_t>(*percent, 0, 100)) / 100.0F;
    return true;
}

/// Takes the value of an option; false if it isn't one, and the token is to be looked at again.
using ValueSetter = bool (*)(PlayerArgs&, const std::string&);

const std::map<std::string, ValueSetter, std::less<>>& valueOptions() {
    static const std::map<std::string, ValueSetter, std::less<>> options{
        {"--volume",
         [](PlayerArgs& player, const std::string& value) { return setVolume(player, value); }},
        {"--title",
         [](PlayerArgs& player, const std::string& value) { return player.title = value, true; }},
        {"--artist",
         [](PlayerArgs& player, const std::string& value) { return player.artist = value, true; }},
        {"--snippet",
         [](PlayerArgs& player, const std::string& value) { return player.snippet = value, true; }},
        {"--captions-sock", [](PlayerArgs& player, const std::string& value) {
             return player.captionsSock = value, true;
         }}};
    return options;
}

PlayerArgs playerArgs(const Args& args) {
    PlayerArgs player;
    player.wav = args[1];
    for (std::size_t i = 2; i < args.size(); ++i) {
        if (args[i] == "--captions") player.captions = true;
        const auto option = valueOptions().find(args[i]);
        if (option == valueOptions().end() || i + 1 == args.size()) continue;
        if (option->second(player, args[i + 1])) ++i;
    }
    return player;
}

}  // namespace

ModeDecision parseMode(const Args& args, const std::function<bool()>& notifyExistingService) {
    if (args.size() < 2) {
        if (notifyExistingService()) return EarlyExit{};
        return ServiceMode{defaultServiceSocketPath()};
    }
    if (contains(args, "--service")) return socketMode<ServiceMode>(args, "--service");
    if (contains(args, "--captions-serve"))
        return socketMode<CaptionsServeLegacyMode>(args, "--captions-serve");
    return playerArgs(args);
}

ModeDecision parseMode(const Args& args) {
    return parseMode(args, tryNotifyExistingService);
}

std::string defaultServiceSocketPath() {
    return sharedDirectory() + "/service.sock";
}

bool tryNotifyExistingService() {
    const UniqueFd fd(connectUnixSocket(defaultServiceSocketPath()));
    if (!fd) return false;
    const std::string line = json::dump({{"cmd", "search"}}) + "\n";
    // A service that hung up meanwhile still is one: the answer doesn't depend on the line.
    [[maybe_unused]] const auto sent = send(fd.get(), line.data(), line.size(), MSG_NOSIGNAL);
    return true;
}

}  // namespace sonra
