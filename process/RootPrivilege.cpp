#include "process/RootPrivilege.h"

#include <unistd.h>

#include <cstdlib>

namespace oxu {

const char* const kPasswordVariable = "__SU_PASSWD__";

namespace {
const char* const kSudoPrefix = "echo \"$__SU_PASSWD__\" | sudo -S -E ";
}

bool needRootPrivilege(bool need) { return need && ::geteuid() != 0; }

std::string wrapForSudo(const std::string& command) {
  std::string wrapped;
  std::size_t begin = command.find_first_not_of(';');
  while (begin != std::string::npos) {
    const std::size_t end = command.find(';', begin);
    wrapped += kSudoPrefix + command.substr(begin, end - begin) + ";";
    begin = command.find_first_not_of(';', end);
  }
  return wrapped;
}

std::string addRootPrivilege(const std::string& command, const std::string& password) {
  ::setenv(kPasswordVariable, password.c_str(), 1);
  return wrapForSudo(command);
}

}  // namespace oxu
