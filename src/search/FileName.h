#pragma once

#include <string>
#include <string_view>

namespace sonra {

/// Names and paths as the file system has them: bytes that needn't be UTF-8. No instances; any
/// thread.
struct FileName {
    /// What stands behind the last slash, slashes at the end aside; "/" for the root.
    static std::string_view lastComponent(std::string_view path);
    /// What stands before it.
    static std::string_view withoutLastComponent(std::string_view path);
    /// A name that only begins with a dot has no extension.
    static std::string_view withoutExtension(std::string_view name);

    /// UTF-8 for every sequence of bytes, another one for each: a byte that isn't part of a
    /// character becomes one of the private characters U+F780 to U+F7FF, and so do the bytes of
    /// those characters themselves.
    static std::string escaped(std::string_view bytes);
    /// The bytes of which `text` is the escaped form.
    static std::string unescaped(std::string_view text);
};

}  // namespace sonra
