// Another library's JSON parser reads what toJson writes, and gets the same value.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "oxu/Json.h"

namespace {

using oxu::json::Json;
using Expected = nlohmann::json;

// Gives the input piece by piece; zeros once the input is used up.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

  template <class Number>
  Number number() {
    Number number = 0;
    const std::string bytes = take(sizeof number);
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
  }
  std::string text() { return take(number<std::uint8_t>() % 32); }

 private:
  std::string take(std::size_t size) {
    size = std::min(size, m_left);
    const std::string bytes(reinterpret_cast<const char*>(m_data), size);
    m_data += size;
    m_left -= size;
    return bytes;
  }

  const std::uint8_t* m_data;
  std::size_t m_left;
};

// The UTF-8 encoding of a code point; empty for a number that is no code point.
std::string encoded(std::uint32_t code) {
  const auto continuation = [&](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3f)); };
  const auto first = [&](std::uint32_t mark, int shift) { return static_cast<char>(mark | (code >> shift)); };
  if (code < 0x80) return {first(0, 0)};
  if (code < 0x800) return {first(0xc0, 6), continuation(0)};
  if (code >= 0xd800 && code < 0xe000) return "";
  if (code < 0x10000) return {first(0xe0, 12), continuation(6), continuation(0)};
  if (code < 0x110000) return {first(0xf0, 18), continuation(12), continuation(6), continuation(0)};
  return "";
}

// The code point of the first `size` bytes, read as the encoding of one character, whatever they are.
std::uint32_t decoded(const std::string& bytes, std::size_t size) {
  const auto byteAt = [&](std::size_t at) { return std::uint32_t{static_cast<unsigned char>(bytes[at])}; };
  std::uint32_t code = byteAt(0) & (size == 1 ? 0x7f : 0xff >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) code = code << 6 | (byteAt(i) & 0x3f);
  return code;
}

// Replaces each byte that begins no character. A character is what equals the encoding of what it decodes to.
std::string repaired(std::string bytes) {
  std::string result;
  while (!bytes.empty()) {
    std::size_t size = std::min<std::size_t>(4, bytes.size());
    while (size > 0 && encoded(decoded(bytes, size)) != bytes.substr(0, size)) --size;
    result += size > 0 ? bytes.substr(0, size) : "\xef\xbf\xbd";
    bytes.erase(0, std::max<std::size_t>(1, size));
  }
  return result;
}

std::pair<Json, Expected> valueFrom(Input& input, int depth);

std::pair<Json, Expected> arrayFrom(Input& input, int depth) {
  std::pair<Json, Expected> array{Json::Array, Expected::array()};
  for (int left = input.number<std::uint8_t>() % 8; left > 0; --left) {
    const auto [json, expected] = valueFrom(input, depth + 1);
    array.first.append(json);
    array.second.push_back(expected);
  }
  return array;
}

// Keys can become alike by their repair. The parser keeps the last member of a key.
std::pair<Json, Expected> objectFrom(Input& input, int depth) {
  std::pair<Json, Expected> object{Json::Object, Expected::object()};
  std::map<std::string, Expected> members;
  for (int left = input.number<std::uint8_t>() % 8; left > 0; --left) {
    const std::string key = input.text();
    const auto [json, expected] = valueFrom(input, depth + 1);
    object.first[key] = json;
    members[key] = expected;
  }
  for (const auto& [key, expected] : members) object.second[repaired(key)] = expected;
  return object;
}

std::pair<Json, Expected> valueFrom(Input& input, int depth) {
  switch (input.number<std::uint8_t>() % (depth < 20 ? 8 : 6)) {
    case 1: {
      const bool value = input.number<std::uint8_t>() % 2 == 1;
      return {value, value};
    }
    case 2: {
      const int value = input.number<int>();
      return {value, value};
    }
    case 3: {
      const double value = input.number<double>();
      return {value, std::isfinite(value) ? Expected(value) : Expected()};
    }
    case 4:
    case 5: {
      const std::string value = input.text();
      return {value, repaired(value)};
    }
    case 6:
      return arrayFrom(input, depth);
    case 7:
      return objectFrom(input, depth);
    default:
      return {};
  }
}

}  // namespace

// The parser throws for an invalid text, and the exception ends the target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const auto [json, expected] = valueFrom(input, 0);
  if (Expected::parse(json.toJson()) != expected) std::abort();
  return 0;
}
