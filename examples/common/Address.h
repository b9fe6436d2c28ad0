// What a log service and its clients agree on, and its address as users write it: IP:PORT.
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

// Throws std::runtime_error for a text that is no IPv4 address, a colon, and a port from `leastPort` to 65535.
Address readAddress(const std::string& text, int leastPort = 1);

}  // namespace common

#endif
