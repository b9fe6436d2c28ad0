#include "oxu/FrameReader.h"

#include <cstdint>
#include <cstring>

namespace oxu {

namespace {

// The fields of a frame, as ProtocolToString writes them: length of what follows it, type, length of the name; then the
// name and the body.
constexpr std::size_t kTypeAt = sizeof(std::uint32_t);
constexpr std::size_t kNameLengthAt = kTypeAt + 1;
constexpr std::size_t kNameAt = kNameLengthAt + sizeof(std::uint16_t);

// Copied, not read through a pointer: the fields lie anywhere.
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

// Moves m_wholeEnd behind the frame that begins there. False when it is not complete, or breaks the stream.
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

// Waits until the bytes taken are at least half of all, so that no byte is moved for which none was taken. The room
// goes back when little of it is in use: a large frame leaves its connection no large buffer.
void FrameReader::dropTaken() {
  if (m_taken < m_bytes.size() - m_taken) return;
  m_bytes.erase(0, m_taken);
  m_wholeEnd -= m_taken;
  m_taken = 0;
  if (m_bytes.size() < m_bytes.capacity() / 4) m_bytes.shrink_to_fit();
}

}  // namespace oxu
