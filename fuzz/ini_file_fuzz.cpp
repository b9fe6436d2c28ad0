// Loads a file of any bytes, and compares with a second, slower way to read it. The text of the table loads into the
// same table, and a host that walks through the table finds all of it.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "oxu/IniFile.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

// One file in memory serves every input.
IniFile loaded(const std::string& bytes) {
  static const int fd = ::memfd_create("ini", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  check(::ftruncate(fd, 0) == 0);
  check(::pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  IniFile ini;
  check(ini.load(path));
  return ini;
}

std::string stripped(std::string text) {
  return text.erase(0, text.find_first_not_of(" \t\n\r\v")).erase(text.find_last_not_of(" \t\n\r\v") + 1);
}

// Reads step by step and with copies, where the library looks at each byte once. The table itself is the library's.
std::string readByHand(const std::string& bytes) {
  IniFile table;
  std::istringstream file(bytes);
  std::string section;
  for (std::string line; std::getline(file, line);) {
    line = stripped(line).substr(0, stripped(line).find('#'));
    const std::size_t close = line.find(']');
    const std::size_t equals = line.find('=');
    const bool isHeader = line[0] == '[';
    if (isHeader && close != std::string::npos) {
      section = stripped(line.substr(1, close - 1));
      table[section].clear();
    } else if (!isHeader && equals != std::string::npos) {
      table[section][stripped(line.substr(0, equals))] = stripped(line.substr(equals + 1));
    }
  }
  return table.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  IniFile ini = loaded(bytes);
  const std::string text = ini.str();
  check(text == readByHand(bytes));
  check(loaded(text).str() == text);
  std::string rebuilt;
  for (const std::string& section : ini.sections()) {
    rebuilt += "[" + section + "]\n";
    for (const auto& [key, value] : ini[section]) rebuilt.append(key).append("=").append(value).append("\n");
    rebuilt += "\n";
  }
  check(rebuilt == text);
  return 0;
}
