#pragma once

#include <unistd.h>

#include <string>

#include "support/TestProcess.h"

namespace sonra::test {

/// A session bus of the test's own; `address` is how it says that it can be reached. Ends with the
/// object.
class PrivateBus {
  public:
    /// Listens at an address as the bus's options have it.
    explicit PrivateBus(const std::string& listen)
        : daemon_(
              {"dbus-daemon", "--session", "--nofork", "--print-address", "--address=" + listen}) {
        for (char byte = 0; read(daemon_.output(), &byte, 1) == 1 && byte != '\n';) address += byte;
    }
    void signal(int number) const { daemon_.signal(number); }

    std::string address;

  private:
    TestProcess daemon_;
};

}  // namespace sonra::test
