// Makes the shell line of a launch, and compares with a second, slower way to make it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "process/LaunchLine.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

// Goes character by character, where the library searches.
std::string wrappedByHand(const std::string& command) {
  std::string wrapped;
  for (std::size_t i = 0; i < command.size(); ++i) {
    if (command[i] == ';') continue;
    if (i == 0 || command[i - 1] == ';') wrapped += "echo \"$__SU_PASSWD__\" | sudo -S -E ";
    wrapped += command[i];
    if (i + 1 == command.size() || command[i + 1] == ';') wrapped += ';';
  }
  return wrapped;
}

std::string replacedByHand(const std::string& command) {
  std::string replaced;
  for (std::size_t i = 0; i < command.size();) {
    const bool placeholder = command.compare(i, 11, "$SU_PASSWD$") == 0;
    replaced += placeholder ? "\"$__SU_PASSWD__\"" : command.substr(i, 1);
    i += placeholder ? 11 : 1;
  }
  return replaced;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t middle = input.find('|');
  const std::string command = input.substr(0, middle);
  const std::string names = middle == std::string::npos ? "" : input.substr(middle + 1);

  check(oxu::wrapForSudo(command) == wrappedByHand(command));
  const auto line = oxu::makeLaunchLine("", names, command, "", false);
  std::string expected;
  for (const std::string& announcement : line.announcements) {
    check(announcement.back() == '\n');
    expected.append(announcement, 0, announcement.size() - 1);
  }
  check(line.announcements.back() == command + "\n");
  expected.resize(expected.size() - command.size());
  check(line.shellLine == expected + replacedByHand(command));
  return 0;
}
