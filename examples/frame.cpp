// A frame, packed and taken apart. A stream brings frames in pieces of any size: examples/log_collector/FrameReader.cpp
// puts them together again.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "oxu/CApi.h"

int main() {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(1, "web", "GET /index.html", &data, &length);
  const std::unique_ptr<char[]> frame(data);
  if (frame == nullptr) return 1;  // the name or the whole is too long

  // The length counts what follows it; send the frame with LogServiceClient::send(frame.get(), length + 4).
  std::uint32_t rest = 0;
  std::uint16_t nameLength = 0;
  std::memcpy(&rest, &frame[0], sizeof rest);
  std::memcpy(&nameLength, &frame[5], sizeof nameLength);
  const std::string name(&frame[7], nameLength);
  const std::string body(&frame[7] + nameLength, rest - 3 - nameLength);
  std::printf("%d bytes: type %d, name %s, body %s\n", length + 4, frame[4], name.c_str(), body.c_str());
}
