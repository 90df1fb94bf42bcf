#pragma once

#include <sys/un.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace sonra {

/// Bytes of a socket path with its terminator that are accepted. Linux has room for four more; the
/// programs at the other end of the socket may run where there is none, so the limit stays.
inline constexpr std::size_t maxSunPathBytes = 104;

/// Length of an address as it is passed to the system: the family and maxSunPathBytes.
inline constexpr unsigned sunAddressLength = 106;

/// Copies the path with its terminator into `address`. False if it is too long, which is said on
/// standard error, or empty: Linux would take that for a name outside the file system.
bool packSunPath(sockaddr_un& address, std::string_view path);

/// A listening stream socket at `path`, mode 0600, close-on-exec; -1 on failure. Whatever stood at
/// the path is removed first, so the caller must know that no other process serves it.
int bindUnixSocket(const std::string& path);

/// A connected stream socket, close-on-exec; -1 on failure. Connecting and each later send on it
/// take at most one second. Senders pass MSG_NOSIGNAL.
int connectUnixSocket(const std::string& path);

}  // namespace sonra
