#include "FrameReader.h"

#include <cstdint>
#include <cstring>

namespace collector {

namespace {

// The fields of a frame: length of what follows it, type, length of the name; then the name and the body.
constexpr std::size_t kTypeAt = 4;
constexpr std::size_t kNameLengthAt = 5;
constexpr std::size_t kNameAt = 7;
constexpr std::uint32_t kLongest = 1 << 20;
constexpr std::uint16_t kLongestName = 255;

template <typename Number>
Number numberAt(const char* bytes) {
  Number number = 0;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

}  // namespace

bool FrameReader::feed(const char* data, std::size_t size) {
  if (!m_is_sound) return false;
  m_bytes.append(data, size);
  std::size_t at = 0;
  while (takeFrame(at)) {
  }
  m_bytes.erase(0, at);
  return m_is_sound;
}

// Moves `at` behind the frame that begins there; false when it is not complete, or not sound.
bool FrameReader::takeFrame(std::size_t& at) {
  const std::size_t available = m_bytes.size() - at;
  if (available < kNameAt) return false;
  const char* bytes = m_bytes.data() + at;
  const auto length = numberAt<std::uint32_t>(bytes);
  const auto nameLength = numberAt<std::uint16_t>(bytes + kNameLengthAt);
  m_is_sound = length <= kLongest && nameLength <= kLongestName && length >= kNameAt - kTypeAt + nameLength;
  if (!m_is_sound || available < kTypeAt + length) return false;
  const std::size_t bodyAt = kNameAt + nameLength;
  m_on_frame({static_cast<unsigned char>(bytes[kTypeAt]), std::string(bytes + kNameAt, nameLength),
              std::string(bytes + bodyAt, kTypeAt + length - bodyAt)});
  at += kTypeAt + length;
  return true;
}

}  // namespace collector
