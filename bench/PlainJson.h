// What Json would be without a bound for the stack: the same members with the compiler's own copy, move and
// destruction, and a text that is written by recursion.
#ifndef BENCH_PLAINJSON_H
#define BENCH_PLAINJSON_H

#include <charconv>
#include <map>
#include <string>
#include <vector>

#include "oxu/Json.h"

namespace bench {

using oxu::json::Json;

struct Plain {
  Json::Type type = Json::Null;
  int number = 0;
  double real = 0;
  bool flag = false;
  std::string text;
  std::vector<Plain> array;
  std::map<std::string, Plain> object;

  Plain() = default;
  explicit Plain(const char* value) : type(Json::String), text(value) {}
  explicit Plain(int value) : type(Json::Int), number(value) {}
  explicit Plain(double value) : type(Json::Double), real(value) {}
  explicit Plain(bool value) : type(Json::Bool), flag(value) {}
};

inline Plain& member(Plain& object, const char* key) {
  object.type = Json::Object;
  return object.object[key];
}

inline Plain& firstElement(Plain& array) {
  array.type = Json::Array;
  return array.array.emplace_back();
}

inline void append(Plain& array, const Plain& value) {
  array.type = Json::Array;
  array.array.push_back(value);
}

template <class Number, class... Format>
void writeNumber(std::string& text, Number value, Format... format) {
  char digits[32];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, value, format...).ptr);
}

inline void write(std::string& text, const Plain& value) {
  const char* separator = "";
  switch (value.type) {
    case Json::Null:
      text += "null";
      break;
    case Json::Bool:
      text += value.flag ? "true" : "false";
      break;
    case Json::Int:
      writeNumber(text, value.number);
      break;
    case Json::Double:
      writeNumber(text, value.real, std::chars_format::general, 6);
      break;
    case Json::String:
      text.append(1, '"').append(value.text) += '"';
      break;
    case Json::Array:
      text += '[';
      for (const Plain& element : value.array) {
        text += separator;
        write(text, element);
        separator = ",";
      }
      text += ']';
      break;
    case Json::Object:
      text += '{';
      for (const auto& [key, element] : value.object) {
        text.append(separator).append(1, '"').append(key) += "\":";
        write(text, element);
        separator = ",";
      }
      text += '}';
      break;
  }
}

inline std::string textOf(const Plain& value) {
  std::string text;
  write(text, value);
  return text;
}

}  // namespace bench

#endif
