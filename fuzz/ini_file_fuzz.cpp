// What a file of any bytes loads into, written out and loaded again, is the same table; a host that walks through the
// table finds all of it.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  IniFile ini = loaded(std::string(reinterpret_cast<const char*>(data), size));
  const std::string text = ini.str();
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
