// What a launch hands to the shell, made from the host's arguments and environment before the fork: the child of
// a host with threads should neither allocate nor take a lock.
#ifndef PROCESS_LAUNCHLINE_H
#define PROCESS_LAUNCHLINE_H

#include <string>
#include <vector>

namespace oxu {

struct LaunchLine {
  std::vector<std::string> announcements;  // what the child prints first, a line each
  std::string shellLine;                   // the argument of bash -c
  std::string passwordEntry;               // for the child's environment: kPasswordVariable=password
};

LaunchLine makeLaunchLine(const std::string& workDir, const std::string& envNames, const std::string& command,
                          const std::string& password, bool needRoot);

}  // namespace oxu

#endif
