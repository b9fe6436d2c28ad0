// Reads streams of frames that are split anywhere. Frames that were packed come out again. A stream of any other bytes
// gives the frames that a reader of the whole stream finds in it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "oxu/CApi.h"
#include "oxu/FrameReader.h"

namespace {

using oxu::Frame;
using oxu::FrameReader;

void check(bool holds) {
  if (!holds) std::abort();
}

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
  std::string rest() {
    const std::size_t size = m_left;
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

// What a stream holds.
struct Content {
  std::vector<Frame> frames;
  std::size_t wholeEnd = 0;
  std::size_t brokenAt = std::string::npos;  // how many bytes show that the stream is broken; npos for a sound one
};

Content contentOf(const std::string& stream, std::size_t maxFrameBytes) {
  Content content;
  while (stream.size() - content.wholeEnd >= 4) {
    const char* const frame = stream.data() + content.wholeEnd;
    const std::size_t left = stream.size() - content.wholeEnd;
    std::uint32_t length = 0;
    std::uint16_t nameLength = 0;
    std::memcpy(&length, frame, sizeof length);
    if (length < 3 || std::size_t{length} + 4 > maxFrameBytes) content.brokenAt = content.wholeEnd + 4;
    if (content.brokenAt != std::string::npos || left < 7) break;
    std::memcpy(&nameLength, frame + 5, sizeof nameLength);
    if (length - 3 < nameLength) content.brokenAt = content.wholeEnd + 7;
    if (length - 3 < nameLength || left - 4 < length) break;
    content.frames.push_back({static_cast<unsigned char>(frame[4]), std::string(frame + 7, nameLength),
                              std::string(frame + 7 + nameLength, length - 3 - nameLength)});
    content.wholeEnd += 4 + length;
  }
  return content;
}

// Reads the stream in pieces of `step` bytes, and takes the frames after every other piece.
void checkReading(const std::string& stream, std::size_t step, std::size_t maxFrameBytes, const Content& content) {
  FrameReader reader(maxFrameBytes);
  std::size_t added = 0, frames = 0;
  const auto takeFrames = [&] {
    for (Frame frame; reader.next(frame); ++frames) {
      const Frame& expected = content.frames.at(frames);
      check(frame.type == expected.type && frame.name == expected.name && frame.body == expected.body);
    }
  };
  for (std::size_t piece = 0; added < stream.size() && !reader.isBroken(); ++piece) {
    const std::size_t size = std::min(step, stream.size() - added);
    added += size;
    const bool isSound = reader.add(stream.data() + added - size, size);
    check(isSound == (added < content.brokenAt) && reader.isBroken() == !isSound);
    if (piece % 2 == 0) takeFrames();
  }
  check(!reader.isBroken() || !reader.add("further", 7));
  takeFrames();
  check(frames == content.frames.size() && reader.unfinishedBytes() == added - content.wholeEnd);
}

void checkPacking(Input input) {
  const std::size_t step = input.number() + 1;
  Content content;
  std::string stream;
  while (!input.empty()) {
    content.frames.push_back({static_cast<int>(input.number()), input.piece(), input.piece()});
    char* frame = nullptr;
    int length = 0;
    ProtocolToString(content.frames.back().type, content.frames.back().name, content.frames.back().body, &frame,
                     &length);
    const std::unique_ptr<char[]> owner(frame);
    stream.append(frame, static_cast<std::size_t>(length) + 4);
  }
  content.wholeEnd = stream.size();
  checkReading(stream, step, 1 << 20, content);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkPacking(Input(data, size));
  Input input(data, size);
  const std::size_t step = input.number() + 1;
  const std::size_t maxFrameBytes = input.number();
  const std::string stream = input.rest();
  checkReading(stream, step, maxFrameBytes, contentOf(stream, maxFrameBytes));
  return 0;
}
