// What the supervisor and the collector agree on, and the address of a log service as users write it: IP:PORT.
#ifndef COMMON_ADDRESS_H
#define COMMON_ADDRESS_H

#include <string>

namespace common {

// The type of the frames that carry output.
constexpr int kOutputFrame = 1;

struct Address {
  std::string ip;
  int port = 0;
};

// Reads an IPv4 address, a colon, and a port from `leastPort` to 65535. Throws std::runtime_error for any other text.
Address readAddress(const std::string& text, int leastPort = 1);

}  // namespace common

#endif
