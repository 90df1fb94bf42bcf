#include "frame/LogTime.h"

#include <array>
#include <ctime>

namespace sonra {
namespace {

constexpr std::size_t secondsLength = sizeof "2026-11-15T07:54:00" - 1;

struct Second {
    time_t second = -1;
    std::array<char, 32> text{};
};

const Second& atSecond(time_t second) {
    thread_local Second cached;
    if (cached.second == second) return cached;
    std::tm parts{};
    gmtime_r(&second, &parts);
    std::strftime(cached.text.data(), cached.text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    cached.second = second;
    return cached;
}

char digit(long value) {
    return static_cast<char>('0' + value % 10);
}

}  // namespace

void appendLogTime(std::string& out) {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long milliseconds = now.tv_nsec / 1'000'000;
    out.append(atSecond(now.tv_sec).text.data(), secondsLength);
    out += {'.', digit(milliseconds / 100), digit(milliseconds / 10), digit(milliseconds), 'Z'};
}

std::string logTime() {
    std::string text;
    appendLogTime(text);
    return text;
}

}  // namespace sonra
