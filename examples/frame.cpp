// Frames, packed and taken apart.
#include <cstdio>
#include <memory>

#include "oxu/CApi.h"
#include "oxu/FrameReader.h"

int main() {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(1, "web", "GET /index.html", &data, &length);
  const std::unique_ptr<char[]> packed(data);
  if (packed == nullptr) return 1;  // the name or the whole is too long

  // The length counts what follows it. To send the frame: LogServiceClient::send(packed.get(), size).
  const std::size_t size = static_cast<std::size_t>(length) + 4;

  // A stream brings its bytes in pieces of any size.
  oxu::FrameReader reader;
  for (std::size_t i = 0; i < size; ++i) {
    if (!reader.add(&packed[i], 1)) return 1;  // the stream is broken
  }
  for (oxu::Frame frame; reader.next(frame);) {
    std::printf("%zu bytes: type %d, name %s, body %s\n", size, frame.type, frame.name.c_str(), frame.body.c_str());
  }
}
