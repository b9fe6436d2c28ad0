#include "process/LaunchLine.h"

#include <cstdlib>
#include <sstream>

#include "process/RootPrivilege.h"

namespace oxu {

namespace {

const std::string kPlaceholder = "$SU_PASSWD$";
const std::string kPlaceholderValue = "\"$__SU_PASSWD__\"";

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
  std::size_t at = command.find(kPlaceholder);
  while (at != std::string::npos) {
    command.replace(at, kPlaceholder.size(), kPlaceholderValue);
    at = command.find(kPlaceholder, at + kPlaceholderValue.size());
  }
  return command;
}

}  // namespace

LaunchLine makeLaunchLine(const std::string& workDir, const std::string& envNames, const std::string& command,
                          const std::string& password, bool needRoot) {
  LaunchLine line;
  std::istringstream names(envNames);
  for (std::string name; std::getline(names, name, ',');) {
    line.announcements.push_back(exportStatement(trimmed(name)));
  }
  if (!workDir.empty()) line.announcements.push_back("cd " + workDir + ";");
  for (const std::string& statement : line.announcements) line.shellLine += statement;
  line.announcements.push_back(command);
  line.shellLine += needRootPrivilege(needRoot) ? wrapForSudo(command) : withPlaceholdersReplaced(command);
  line.passwordEntry = std::string(kPasswordVariable) + "=" + password;
  return line;
}

}  // namespace oxu
