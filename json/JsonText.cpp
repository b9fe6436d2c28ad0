#include <charconv>
#include <locale>
#include <new>
#include <optional>
#include <sstream>
#include <utility>

#include "oxu/Json.h"

namespace oxu::json {

namespace {

// Numbers as a stream with default settings writes them, in the locale at the time of its construction. In the classic
// one no stream is needed for that.
class NumberFormat {
 public:
  void append(std::string& text, int value) {
    if (!m_is_classic) return appendStreamed(text, value);
    char digits[16];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }

  void append(std::string& text, double value) {
    if (!m_is_classic) return appendStreamed(text, value);
    constexpr int kPrecision = 6;
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, kPrecision);
    text.append(digits, end.ptr);
  }

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

void appendQuoted(std::string& text, const std::string& bytes) {
  text += '"';
  text += bytes;
  text += '"';
}

}  // namespace

// Writes a tree into one text, container by container, with the way down on a list of its own.
struct Json::Writer {
  struct Level {
    std::vector<Json>::const_iterator element, elementsEnd;
    std::map<std::string, Json>::const_iterator member, membersEnd;
    bool isArray, isFirst;
  };
  std::string text;
  std::vector<Level> levels;
  NumberFormat numbers;

  void write(const Json& value) {
    switch (value.m_type) {
      case Null:
        text += "null";
        break;
      case Bool:
        text += value.m_bool ? "true" : "false";
        break;
      case Int:
        numbers.append(text, value.m_int);
        break;
      case Double:
        numbers.append(text, value.m_double);
        break;
      case String:
        appendQuoted(text, value.m_string);
        break;
      case Array:
      case Object:
        open(value);
        break;
    }
  }

  void open(const Json& value) {
    text += value.isArray() ? '[' : '{';
    levels.push_back({value.m_array.begin(), value.m_array.end(), value.m_object.begin(), value.m_object.end(),
                      value.isArray(), true});
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
    if (level.isArray) return write(*level.element++);
    appendQuoted(text, level.member->first);
    text += ':';
    write((level.member++)->second);
  }
};

std::string Json::toString() const {
  Writer writer;
  writer.write(*this);
  while (!writer.levels.empty()) writer.step();
  return std::move(writer.text);
}

}  // namespace oxu::json
