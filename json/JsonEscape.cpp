#include "json/JsonEscape.h"

namespace oxu::json {

namespace {

constexpr std::string_view kReplacement = "\xef\xbf\xbd";

unsigned char byteAt(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }

bool needsEscape(unsigned char byte) { return byte < 0x20 || byte == '"' || byte == '\\'; }

// How many bytes a character has that begins with this one. C0, C1 and all from F5 on begin none.
std::size_t lengthFrom(unsigned char first) {
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  return first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

// Keeps out overlong forms, surrogates, and what lies beyond U+10FFFF: all of them show in the second byte.
bool isSecondByte(unsigned char first, unsigned char second) {
  const unsigned char lowest = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned char highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  return second >= lowest && second <= highest;
}

// The length of the UTF-8 character at the start, 0 where there is none.
std::size_t characterLength(std::string_view bytes) {
  const std::size_t length = lengthFrom(byteAt(bytes, 0));
  if (length > bytes.size()) return 0;
  if (length > 1 && !isSecondByte(byteAt(bytes, 0), byteAt(bytes, 1))) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byteAt(bytes, i) & 0xc0) != 0x80) return 0;
  }
  return length;
}

void appendEscape(std::string& text, unsigned char byte) {
  constexpr std::string_view kBytes = "\"\\\b\f\n\r\t", kLetters = "\"\\bfnrt";
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  const std::size_t letter = kBytes.find(static_cast<char>(byte));
  text += '\\';
  if (letter != std::string_view::npos) {
    text += kLetters[letter];
  } else {
    ((text += "u00") += kHexDigits[byte >> 4]) += kHexDigits[byte & 0xf];
  }
}

}  // namespace

// What stays as it is goes over in runs as long as possible.
void appendEscaped(std::string& text, std::string_view bytes) {
  std::size_t runAt = 0;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t length = characterLength(bytes.substr(at));
    if (length > 0 && !needsEscape(byteAt(bytes, at))) {
      at += length;
      continue;
    }
    text.append(bytes, runAt, at - runAt);
    if (length == 0) {
      text += kReplacement;
    } else {
      appendEscape(text, byteAt(bytes, at));
    }
    runAt = ++at;
  }
  text.append(bytes, runAt);
}

}  // namespace oxu::json
