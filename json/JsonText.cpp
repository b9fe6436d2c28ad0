#include <charconv>
#include <cmath>
#include <locale>
#include <new>
#include <optional>
#include <sstream>
#include <utility>

#include "json/JsonEscape.h"
#include "oxu/Json.h"

namespace oxu::json {

namespace {

template <class Number, class... Format>
void appendDigits(std::string& text, Number value, Format... format) {
  char digits[32];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, value, format...).ptr);
}

// How toString writes: strings as they are, numbers as a stream with default settings does, in the locale at the time
// of its construction. In the classic one no stream is needed for that.
class PlainFormat {
 public:
  void append(std::string& text, int value) { m_is_classic ? appendDigits(text, value) : appendStreamed(text, value); }

  void append(std::string& text, double value) {
    constexpr int kPrecision = 6;
    if (!m_is_classic) return appendStreamed(text, value);
    appendDigits(text, value, std::chars_format::general, kPrecision);
  }

  static void append(std::string& text, const std::string& bytes) { text += bytes; }

 private:
  template <class Number>
  void appendStreamed(std::string& text, Number value) {
    if (!m_stream) m_stream.emplace();
    m_stream->str({});
    // A stream keeps to itself that memory runs out, and the number would be missing.
    if (!(*m_stream << value)) throw std::bad_alloc();
    text += m_stream->str();
  }

  const bool m_is_classic = std::locale() == std::locale::classic();
  std::optional<std::ostringstream> m_stream;
};

// How toJson writes: what any reader of JSON takes.
struct StrictFormat {
  static void append(std::string& text, int value) { appendDigits(text, value); }

  static void append(std::string& text, double value) {
    if (!std::isfinite(value)) {
      text += "null";
    } else {
      appendDigits(text, value);
    }
  }

  static void append(std::string& text, const std::string& bytes) { appendEscaped(text, bytes); }
};

}  // namespace

// Writes a tree into one text, container by container, with the way down on a list of its own.
template <class Format>
struct Json::Writer {
  struct Level {
    std::vector<Json>::const_iterator element, elementsEnd;
    std::map<std::string, Json>::const_iterator member, membersEnd;
    bool isArray, isFirst;
  };
  std::string text;
  std::vector<Level> levels;
  Format format;

  std::string textOf(const Json& value) {
    write(value);
    while (!levels.empty()) step();
    return std::move(text);
  }

  void write(const Json& value) {
    switch (value.m_type) {
      case Null:
        text += "null";
        break;
      case Bool:
        text += value.m_bool ? "true" : "false";
        break;
      case Int:
        format.append(text, value.m_int);
        break;
      case Double:
        format.append(text, value.m_double);
        break;
      case String:
        appendQuoted(value.m_string);
        break;
      case Array:
      case Object:
        open(value);
        break;
    }
  }

  void appendQuoted(const std::string& bytes) {
    text += '"';
    format.append(text, bytes);
    text += '"';
  }

  void open(const Json& value) {
    text += value.isArray() ? '[' : '{';
    levels.push_back({value.m_array.begin(), value.m_array.end(), value.m_object.begin(), value.m_object.end(),
                      value.isArray(), true});
  }

  // A large tree is written as fast as memory delivers it: this asks for the next element while one is written.
  static void prefetch(const Json& element) {
    if (element.m_object.empty()) return;
    const auto& member = *element.m_object.begin();
    __builtin_prefetch(&member.first);
    __builtin_prefetch(&member.second);
  }

  // Writes the next child of the innermost container, or closes it.
  void step() {
    Level& level = levels.back();
    if (level.element == level.elementsEnd && level.member == level.membersEnd) {
      text += level.isArray ? ']' : '}';
      levels.pop_back();
      return;
    }
    if (!level.isFirst) text += ',';
    level.isFirst = false;
    if (level.isArray) {
      const Json& element = *level.element++;
      if (level.element != level.elementsEnd) prefetch(*level.element);
      return write(element);
    }
    appendQuoted(level.member->first);
    text += ':';
    write((level.member++)->second);
  }
};

std::string Json::toString() const { return Writer<PlainFormat>().textOf(*this); }
std::string Json::toJson() const { return Writer<StrictFormat>().textOf(*this); }

}  // namespace oxu::json
