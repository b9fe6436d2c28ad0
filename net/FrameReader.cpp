#include "oxu/FrameReader.h"

#include <cstdint>
#include <cstring>

namespace oxu {

namespace {

// The fields of a frame, as ProtocolToString writes them: the number of bytes behind this field, the type, the length
// of the name, the name, the body.
constexpr std::size_t kTypeAt = sizeof(std::uint32_t);
constexpr std::size_t kNameLengthAt = kTypeAt + 1;
constexpr std::size_t kNameAt = kNameLengthAt + sizeof(std::uint16_t);

// Copies the number, since fields need not be aligned.
template <class Number>
std::size_t numberAt(const char* bytes) {
  Number number = 0;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

std::size_t lengthOf(const char* frame) { return numberAt<std::uint32_t>(frame); }
std::size_t nameLengthOf(const char* frame) { return numberAt<std::uint16_t>(frame + kNameLengthAt); }

}  // namespace

FrameReader::FrameReader(std::size_t maxFrameBytes) : m_maxFrameBytes(maxFrameBytes) {}

bool FrameReader::add(const char* data, std::size_t size) {
  if (m_isBroken) return false;
  m_bytes.append(data, size);
  while (findFrame()) {
  }
  return !m_isBroken;
}

bool FrameReader::next(Frame& frame) {
  if (m_taken == m_wholeEnd) return false;
  const char* const bytes = m_bytes.data() + m_taken;
  const std::size_t bodyAt = kNameAt + nameLengthOf(bytes);
  const std::size_t end = kTypeAt + lengthOf(bytes);
  frame.name.assign(bytes + kNameAt, bodyAt - kNameAt);
  frame.body.assign(bytes + bodyAt, end - bodyAt);
  frame.type = static_cast<unsigned char>(bytes[kTypeAt]);
  m_taken += end;
  dropTaken();
  return true;
}

// Moves m_wholeEnd behind the frame that begins there. False when that frame is not complete, or breaks the stream.
bool FrameReader::findFrame() {
  const char* const frame = m_bytes.data() + m_wholeEnd;
  const std::size_t available = m_bytes.size() - m_wholeEnd;
  if (available < kTypeAt) return false;
  const std::size_t end = kTypeAt + lengthOf(frame);
  const std::size_t smallest = kNameAt + (available < kNameAt ? 0 : nameLengthOf(frame));
  m_isBroken = end < smallest || end > m_maxFrameBytes;
  if (m_isBroken || available < end) return false;
  m_wholeEnd += end;
  return true;
}

// Drops the bytes of the frames that next has given, once they are at least half of all bytes: so no more bytes are
// moved than are dropped. Shrinks a buffer of which little is in use, so that a large frame leaves no large buffer
// behind.
void FrameReader::dropTaken() {
  if (m_taken < m_bytes.size() - m_taken) return;
  m_bytes.erase(0, m_taken);
  m_wholeEnd -= m_taken;
  m_taken = 0;
  if (m_bytes.size() < m_bytes.capacity() / 4) m_bytes.shrink_to_fit();
}

}  // namespace oxu
