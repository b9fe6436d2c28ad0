#include "oxu/IniFile.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <utility>

#include "config/LineReader.h"
#include "os/os_print.h"
#include "os/os_signal.h"

namespace {

using Section = std::map<std::string, std::string>;
using Table = std::map<std::string, Section>;

// Not isspace: a form feed stays, and no locale has a say.
bool isBlank(char byte) { return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r' || byte == '\v'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Fills a table from the lines of a file, in their order.
class TableFiller {
 public:
  explicit TableFiller(Table& table) : m_table(table) {}

  // Trims first, so that an indented header or comment is recognised. Then cuts the comment off. Names and values are
  // trimmed one by one after that.
  void addLine(std::string_view line) {
    line = trimmed(line);
    line = line.substr(0, line.find('#'));
    if (line.empty()) return;
    if (line.front() == '[') {
      enterSection(line);
    } else {
      assign(line);
    }
  }

 private:
  // A header without its closing bracket is skipped, and the section stays the current one.
  void enterSection(std::string_view line) {
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos) return;
    setCurrent(trimmed(line.substr(1, close - 1)));
    m_current->clear();
  }

  // The hint makes a key behind all others cheap, as in a sorted file, and costs any other key one comparison.
  void assign(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    if (m_current == nullptr) setCurrent({});
    m_current->insert_or_assign(m_current->end(), std::string(trimmed(line.substr(0, equals))),
                                trimmed(line.substr(equals + 1)));
  }

  void setCurrent(std::string_view name) { m_current = &m_table.try_emplace(m_table.end(), std::string(name))->second; }

  Table& m_table;
  // Null before the first header: the section with the empty name exists only once a key is in it. Map nodes do not
  // move, so one look-up serves all lines of a section.
  Section* m_current = nullptr;
};

// The value of a key; null when the section or the key is missing.
const std::string* find(const Table& table, const std::string& section, const std::string& key) {
  const auto keys = table.find(section);
  if (keys == table.end()) return nullptr;
  const auto entry = keys->second.find(key);
  return entry != keys->second.end() ? &entry->second : nullptr;
}

// The getters do not change errno, in which strtol and strtod report a number out of range.
template <typename Convert>
auto withErrnoKept(Convert convert) {
  const int error = errno;
  const auto number = convert();
  errno = error;
  return number;
}

// The size of the text of str: four bytes per section for brackets and line feeds, two per key for "=" and line feed.
std::size_t textSize(const Table& table) {
  std::size_t size = 0;
  for (const auto& [name, keys] : table) {
    size += name.size() + 4;
    for (const auto& [key, value] : keys) size += key.size() + value.size() + 2;
  }
  return size;
}

}  // namespace

bool IniFile::load(const std::string& path) {
  // The path may be a value of this very table, so the old table lives until the path has been used.
  Table previous = std::exchange(m_sections, {});
  oxu::LineReader lines(path);
  if (!lines.isOpen()) {
    os_print(stdout, "Failed to open file %s\n", path.c_str());
    return false;
  }
  previous.clear();
  TableFiller filler(m_sections);
  for (std::string_view line; lines.next(line);) filler.addLine(line);
  return true;
}

bool IniFile::has(const std::string& section) { return m_sections.find(section) != m_sections.end(); }

bool IniFile::has(const std::string& section, const std::string& key) {
  return find(m_sections, section, key) != nullptr;
}

std::vector<std::string> IniFile::sections() const {
  std::vector<std::string> names;
  names.reserve(m_sections.size());
  for (const auto& [name, keys] : m_sections) names.push_back(name);
  return names;
}

std::map<std::string, std::string>& IniFile::operator[](const std::string& section) { return m_sections[section]; }

std::string IniFile::getString(const std::string& section, const std::string& key, const std::string& defaultValue) {
  const std::string* const value = find(m_sections, section, key);
  return value != nullptr ? *value : defaultValue;
}

int IniFile::getInt(const std::string& section, const std::string& key, int defaultValue) {
  const std::string* const value = find(m_sections, section, key);
  if (value == nullptr) return defaultValue;
  return static_cast<int>(withErrnoKept([&] { return std::strtol(value->c_str(), nullptr, 10); }));
}

double IniFile::getDouble(const std::string& section, const std::string& key, double defaultValue) {
  const std::string* const value = find(m_sections, section, key);
  if (value == nullptr) return defaultValue;
  return withErrnoKept([&] { return std::strtod(value->c_str(), nullptr); });
}

bool IniFile::getBool(const std::string& section, const std::string& key, bool defaultValue) {
  const std::string* const value = find(m_sections, section, key);
  if (value == nullptr) return defaultValue;
  std::string lowered = *value;
  for (char& byte : lowered) byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  return lowered == "true" || lowered == "1";
}

std::string IniFile::str() const {
  std::string text;
  text.reserve(textSize(m_sections));
  for (const auto& [name, keys] : m_sections) {
    text.append("[").append(name).append("]\n");
    for (const auto& [key, value] : keys) text.append(key).append("=").append(value).append("\n");
    text.append("\n");
  }
  return text;
}

void IniFile::show() {
  const std::string text = str();
  const os_signal_pipe_guard noSigpipe;
  const std::ios_base::Init streams;  // a static object of the host may print before this file's streams are set up
  // operator<< would pad the text to a width that the host has set.
  std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
}
