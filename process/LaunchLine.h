// The text that a launch hands to the shell, made from the host's arguments and environment, with commands that are to
// run as root wrapped for sudo. Every function may be called from any thread, while no thread changes the environment.
#ifndef PROCESS_LAUNCHLINE_H
#define PROCESS_LAUNCHLINE_H

#include <string>
#include <vector>

namespace oxu {

struct LaunchLine {
  std::vector<std::string> announcements;  // what the child prints first, each with its line feed
  std::string shellLine;                   // the argument of bash -c
  std::string passwordEntry;               // for the child's environment: __SU_PASSWD__=password
};

LaunchLine makeLaunchLine(const std::string& workDir, const std::string& envNames, const std::string& command,
                          const std::string& password, bool needRoot);

// True when root is needed and the caller's effective user is not root.
bool needRootPrivilege(bool need);

// The command with each of its ';'-separated parts run by sudo, which reads the password from __SU_PASSWD__.
std::string wrapForSudo(const std::string& command);

// Sets __SU_PASSWD__ in the caller's environment and returns wrapForSudo(command).
std::string addRootPrivilege(const std::string& command, const std::string& password);

}  // namespace oxu

#endif
