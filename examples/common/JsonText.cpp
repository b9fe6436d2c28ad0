#include "common/JsonText.h"

#include <climits>
#include <cstdio>

namespace common {

namespace {

unsigned char byteAt(const std::string& text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// The length of the well-formed UTF-8 sequence at `at`; 0 when there is none.
std::size_t sequenceAt(const std::string& text, std::size_t at) {
  const unsigned char first = byteAt(text, at);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(text, at + i) & 0xc0) != 0x80) return 0;
  }
  // Overlong forms, surrogates, and what lies beyond the last code point.
  const unsigned char second = byteAt(text, at + 1);
  const bool isOutside = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                         (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
  return isOutside ? 0 : length;
}

}  // namespace

std::string escaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = sequenceAt(text, at);
    const unsigned char first = byteAt(text, at);
    char code[8];
    if (length == 0) {
      result += "\\ufffd";
    } else if (first == '"' || first == '\\') {
      (result += '\\') += text[at];
    } else if (first < 0x20 || first == 0x7f) {
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(first));
      result += code;
    } else {
      result.append(text, at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return result;
}

oxu::json::Json number(unsigned long value) {
  using oxu::json::Json;
  return value <= INT_MAX ? Json(static_cast<int>(value)) : Json(std::to_string(value));
}

}  // namespace common
