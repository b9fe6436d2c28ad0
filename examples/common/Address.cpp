#include "common/Address.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <stdexcept>

namespace common {

Address readAddress(const std::string& text, int leastPort) {
  const std::size_t colon = text.find(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  Address address{text.substr(0, colon), std::atoi(port.c_str())};
  in_addr ignored{};
  const bool isPort = port == std::to_string(address.port) && address.port >= leastPort && address.port <= 65535;
  // Any other text would mean all addresses to the library.
  if (!isPort || ::inet_pton(AF_INET, address.ip.c_str(), &ignored) != 1) {
    throw std::runtime_error("'" + text + "' is not IP:PORT, such as 127.0.0.1:7979");
  }
  return address;
}

}  // namespace common
