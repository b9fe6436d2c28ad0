#include "process/LaunchLine.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string_view>

namespace oxu {

namespace {

// These constants need no construction: a static object of the host may launch before this file's objects exist.
constexpr std::string_view kPlaceholder = "$SU_PASSWD$";
constexpr char kPasswordVariable[] = "__SU_PASSWD__";

// What the shell replaces with the password.
std::string passwordReference() { return std::string("\"$") + kPasswordVariable + "\""; }

std::string trimmed(const std::string& text) {
  const char* const blanks = " \n\r\t";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string exportStatement(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return "export " + name + "=" + (value != nullptr ? value : "") + ";";
}

std::string withPlaceholdersReplaced(std::string command) {
  const std::string reference = passwordReference();
  std::size_t at = command.find(kPlaceholder);
  while (at != std::string::npos) {
    command.replace(at, kPlaceholder.size(), reference);
    at = command.find(kPlaceholder, at + reference.size());
  }
  return command;
}

}  // namespace

LaunchLine makeLaunchLine(const std::string& workDir, const std::string& envNames, const std::string& command,
                          const std::string& password, bool needRoot) {
  LaunchLine line;
  const auto announce = [&line](const std::string& statement) {
    line.announcements.push_back(statement + "\n");
    line.shellLine += statement;
  };
  std::istringstream names(envNames);
  for (std::string name; std::getline(names, name, ',');) announce(exportStatement(trimmed(name)));
  if (!workDir.empty()) announce("cd " + workDir + ";");
  line.announcements.push_back(command + "\n");
  line.shellLine += needRootPrivilege(needRoot) ? wrapForSudo(command) : withPlaceholdersReplaced(command);
  line.passwordEntry = kPasswordVariable + ("=" + password);
  return line;
}

bool needRootPrivilege(bool need) { return need && ::geteuid() != 0; }

std::string wrapForSudo(const std::string& command) {
  const std::string prefix = "echo " + passwordReference() + " | sudo -S -E ";
  std::string wrapped;
  std::size_t begin = command.find_first_not_of(';');
  while (begin != std::string::npos) {
    const std::size_t end = command.find(';', begin);
    wrapped += prefix + command.substr(begin, end - begin) + ";";
    begin = command.find_first_not_of(';', end);
  }
  return wrapped;
}

std::string addRootPrivilege(const std::string& command, const std::string& password) {
  ::setenv(kPasswordVariable, password.c_str(), 1);
  return wrapForSudo(command);
}

}  // namespace oxu
