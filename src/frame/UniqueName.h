#pragma once

#include <string>

namespace sonra {

/// Eight random hexadecimal digits in upper case, as a UUID begins: tells apart temporary files of
/// one process.
std::string uniqueSuffix();

/// `id` as it is where it can be part of a file's name; else (a slash, a control character, ".",
/// "..", empty, longer than 100 bytes) 16 hexadecimal digits of its SHA-256.
std::string safeFileName(const std::string& id);

}  // namespace sonra
