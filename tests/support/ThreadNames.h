#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <system_error>

#include "support/TempDir.h"

namespace sonra::test {

/// Names by thread, as one look at the process finds them.
inline std::map<std::string, std::string> namesByThread() {
    std::map<std::string, std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator task("/proc/self/task", error), end;
         !error && task != end; task.increment(error)) {
        auto name = readFile(task->path() / "comm");
        if (name.ends_with('\n')) name.pop_back();
        names[task->path().filename()] = std::move(name);
    }
    return names;
}

/// The names of all threads of this process. A thread that ends during a look may hide others from
/// it, so that two in a row have to find the same.
inline std::multiset<std::string> threadNames() {
    auto before = namesByThread();
    for (auto now = namesByThread(); now != before; now = namesByThread()) before = std::move(now);
    std::multiset<std::string> names;
    for (const auto& [thread, name] : before) names.insert(name);
    return names;
}

}  // namespace sonra::test
