#include "common/LineCutter.h"

#include <algorithm>
#include <string_view>

namespace common {

namespace {

// The length of the first piece of a line that is too long. Cuts no character of UTF-8.
std::size_t pieceOf(std::string_view line, std::size_t longest) {
  std::size_t size = longest;
  while (size > longest - 3 && (line[size] & 0xc0) == 0x80) --size;
  return size;
}

}  // namespace

void LineCutter::add(const std::string& text) {
  m_unfinished += text;
  std::size_t begin = 0;
  for (;;) {
    // Searches no further than a line may reach, so that a long line is not searched again for each of its pieces.
    const std::string_view rest = std::string_view(m_unfinished).substr(begin, m_longest + 1);
    const std::size_t feed = rest.find('\n');
    if (feed == std::string_view::npos && rest.size() <= m_longest) break;
    const std::size_t size = feed == std::string_view::npos ? pieceOf(rest, m_longest) : feed;
    handOn(std::string(rest.substr(0, size)));
    begin += feed == std::string_view::npos ? size : feed + 1;
  }
  m_unfinished.erase(0, begin);
}

void LineCutter::finish() {
  if (!m_unfinished.empty()) handOn(m_unfinished);
  m_unfinished.clear();
}

void LineCutter::handOn(const std::string& line) {
  ++m_lines;
  m_on_line(line);
}

}  // namespace common
