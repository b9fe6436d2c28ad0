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

// Puts a ? in place of each control character but the tab, those of two bytes in UTF-8 included.
void replaceControls(std::string& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if ((byte < 0x20 && byte != '\t') || byte == 0x7f) text[at] = '?';
    const int next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (byte == 0xc2 && next >= 0x80 && next < 0xa0) text.replace(at, 2, "?");
  }
}

}  // namespace

LinePrinter::LinePrinter(const std::string& name, Controls controls)
    : m_label(name.substr(0, kLongestLabel)), m_controls(controls) {
  // A name that comes over the network could write lines of its own.
  replaceControls(m_label);
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
  if (m_controls == Controls::kReplaced) replaceControls(line);
  std::replace(line.begin(), line.end(), '\0', '?');
  logLine(oxu::INFO, m_label + " | " + line);
}

}  // namespace common
