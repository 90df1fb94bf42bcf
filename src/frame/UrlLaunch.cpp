#include "frame/UrlLaunch.h"

#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>

#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"

namespace sonra {
namespace {

constexpr std::string_view prefix = "tts://";
/// The oldest version of the socket's protocol: every service knows it.
constexpr int protocol = 1;

bool isUrl(const std::string& argument) {
    return strncasecmp(argument.c_str(), prefix.data(), prefix.size()) == 0;
}

}  // namespace

std::vector<std::string> launchUrls(const std::vector<std::string>& args) {
    if (args.size() < 2 || !std::all_of(args.begin() + 1, args.end(), isUrl)) return {};
    return {args.begin() + 1, args.end()};
}

bool tryOpenInExistingService(const std::vector<std::string>& urls) {
    const UniqueFd fd(connectUnixSocket(defaultServiceSocketPath()));
    if (!fd) return false;
    const std::string line =
        json::dump({{"cmd", "open"}, {"proto", protocol}, {"urls", urls}}) + "\n";
    std::string_view rest = line;
    while (!rest.empty()) {
        const auto sent = send(fd.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

}  // namespace sonra
