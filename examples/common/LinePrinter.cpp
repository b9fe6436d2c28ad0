#include "common/LinePrinter.h"

#include <algorithm>
#include <string_view>

#include "common/Log.h"
#include "oxu/LogLevel.h"

namespace common {

namespace {

// A log record takes 1022 bytes, the name included.
constexpr std::size_t kShortestLabel = 8;
constexpr std::size_t kLongestLabel = 40;
constexpr std::size_t kLongestLine = 900;

}  // namespace

LinePrinter::LinePrinter(const std::string& name) : m_label(name.substr(0, kLongestLabel)) {
  // A name that comes over the network could write lines of its own.
  std::replace_if(
      m_label.begin(), m_label.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }, '?');
  m_label.resize(std::max(m_label.size(), kShortestLabel), ' ');
}

void LinePrinter::add(const std::string& text) {
  m_unfinished += text;
  std::size_t begin = 0;
  for (;;) {
    // No further than a line may reach, so that a long one is not searched again for each of its pieces.
    const std::string_view rest = std::string_view(m_unfinished).substr(begin, kLongestLine + 1);
    const std::size_t feed = rest.find('\n');
    if (feed == std::string_view::npos && rest.size() <= kLongestLine) break;
    print(std::string(rest.substr(0, std::min(feed, kLongestLine))));
    begin += feed == std::string_view::npos ? kLongestLine : feed + 1;
  }
  m_unfinished.erase(0, begin);
}

void LinePrinter::finish() {
  if (!m_unfinished.empty()) print(m_unfinished);
  m_unfinished.clear();
}

void LinePrinter::print(std::string line) {
  ++m_lines;
  std::replace(line.begin(), line.end(), '\0', '?');
  logLine(oxu::INFO, m_label + " | " + line);
}

}  // namespace common
