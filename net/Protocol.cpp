#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "oxu/CApi.h"

namespace {

// The fields in front of the name: length, type, length of the name.
constexpr std::size_t kTypeAt = sizeof(std::uint32_t);
constexpr std::size_t kNameLengthAt = kTypeAt + 1;
constexpr std::size_t kNameAt = kNameLengthAt + sizeof(std::uint16_t);

}  // namespace

void ProtocolToString(int type, const std::string& name, const std::string& body, char** out, int* outLength) {
  *out = nullptr;
  *outLength = 0;
  if (name.size() > UINT16_MAX || body.size() > INT_MAX - kNameAt - name.size()) return;
  const auto nameLength = static_cast<std::uint16_t>(name.size());
  const auto length = static_cast<std::uint32_t>(kNameAt - kTypeAt + name.size() + body.size());
  std::unique_ptr<char[]> frame(new (std::nothrow) char[kTypeAt + length]);
  if (!frame) return;
  // Copies the numbers, since the two-byte field is not aligned.
  std::memcpy(frame.get(), &length, sizeof length);
  frame[kTypeAt] = static_cast<char>(type);
  std::memcpy(&frame[kNameLengthAt], &nameLength, sizeof nameLength);
  std::memcpy(&frame[kNameAt], name.data(), name.size());
  std::memcpy(&frame[kNameAt] + name.size(), body.data(), body.size());
  *outLength = static_cast<int>(length);
  *out = frame.release();
}
