// A speech worker that takes no time: every request is answered at once with a sound file that was
// ready before, the second one for a text with the word "loud". It stands in for the speech helper
// where the service's own share of a delay is measured.
//   instant_worker READY.wav LOUD.wav    (the protocol is on standard input and output)

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "frame/Json.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::cout << sonra::Json{{"type", "ready"}, {"pid", getpid()}, {"backend", "instant"}}.dump()
              << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        const auto request = sonra::json::parseObject(line);
        if (!request) continue;
        if (sonra::json::stringAt(*request, "type") == "quit") return 0;
        const auto out = sonra::json::stringAt(*request, "outWav").value_or("");
        const auto text = sonra::json::stringAt(*request, "text").value_or("");
        const bool isLoud = text.find("loud") != std::string::npos;
        const bool ok = link(argv[isLoud ? 2 : 1], out.c_str()) == 0;
        std::cout << sonra::Json{{"type", "result"}, {"id", (*request)["id"]}, {"ok", ok}}.dump()
                  << std::endl;
    }
}
