#include "common/LinePrinter.h"

#include <algorithm>

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
  std::replace(m_label.begin(), m_label.end(), '\0', '?');
  m_label.resize(std::max(m_label.size(), kShortestLabel), ' ');
}

void LinePrinter::add(const std::string& text) {
  m_unfinished += text;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t feed = m_unfinished.find('\n', begin);
    const std::size_t size = (feed == std::string::npos ? m_unfinished.size() : feed) - begin;
    if (feed == std::string::npos && size <= kLongestLine) break;
    print(m_unfinished.substr(begin, std::min(size, kLongestLine)));
    begin += size > kLongestLine ? kLongestLine : size + 1;
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
