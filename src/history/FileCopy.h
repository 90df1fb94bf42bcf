#pragma once

#include <cstdint>

namespace sonra {

/// Copies file contents between descriptors by the quickest way that the file systems offer. Any
/// thread; failures are thrown as std::system_error.
struct FileCopy {
    /// Makes the empty file `to` share the contents of `from`, at no cost. False where that isn't
    /// possible.
    static bool share(int from, int to);
    /// Copies `from`, from its start to its end, into the empty file `to`.
    static void copy(int from, int to);
};

}  // namespace sonra
