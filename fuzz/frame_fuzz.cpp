// Frames through a stream that is split anywhere: what was packed comes out again, and any other stream does no harm.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "examples/log_collector/FrameReader.h"
#include "oxu/CApi.h"

namespace {

// Cuts the input: each piece takes its length from the byte in front of it.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_data(reinterpret_cast<const char*>(data)), m_left(size) {}

  bool empty() const { return m_left == 0; }
  std::size_t number() { return empty() ? 0 : static_cast<unsigned char>(*take(1)); }
  std::string piece() {
    const std::size_t size = std::min(number(), m_left);
    return {take(size), size};
  }

 private:
  const char* take(std::size_t size) {
    m_data += size;
    m_left -= size;
    return m_data - size;
  }

  const char* m_data;
  std::size_t m_left;
};

struct Message {
  int type;
  std::string name, body;
};

void require(bool condition) {
  if (!condition) std::abort();
}

// Feeds the stream in pieces of so many bytes.
void feed(collector::FrameReader& reader, const std::string& stream, std::size_t step) {
  for (std::size_t at = 0; at < stream.size(); at += step)
    require(reader.feed(stream.data() + at, std::min(step, stream.size() - at)));
}

void packAndUnpack(Input input) {
  const std::size_t step = input.number() + 1;
  std::vector<Message> messages;
  std::string stream;
  while (!input.empty()) {
    messages.push_back({static_cast<int>(input.number()), input.piece(), input.piece()});
    char* frame = nullptr;
    int length = 0;
    ProtocolToString(messages.back().type, messages.back().name, messages.back().body, &frame, &length);
    const std::unique_ptr<char[]> owner(frame);
    stream.append(frame, static_cast<std::size_t>(length) + 4);
  }
  std::size_t next = 0;
  collector::FrameReader reader([&](const collector::Frame& frame) {
    const Message& message = messages.at(next++);
    require(frame.type == message.type && frame.name == message.name && frame.body == message.body);
  });
  feed(reader, stream, step);
  require(next == messages.size() && reader.unfinishedBytes() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  packAndUnpack(Input(data, size));
  std::size_t bytes = 0;
  collector::FrameReader reader([&](const collector::Frame& frame) { bytes += frame.name.size() + frame.body.size(); });
  reader.feed(reinterpret_cast<const char*>(data), size);
  require(bytes + reader.unfinishedBytes() <= size);
  return 0;
}
