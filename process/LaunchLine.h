// The text that a launch hands to the shell, made from the host's arguments and environment. It is
// built before the fork: the child of a host with threads should allocate as little as it can.
#ifndef PROCESS_LAUNCHLINE_H
#define PROCESS_LAUNCHLINE_H

#include <string>
#include <vector>

namespace oxu {

struct LaunchLine {
  std::vector<std::string> announcements;  // what the child prints first, a line each
  std::string shellLine;                   // the argument of bash -c
};

LaunchLine makeLaunchLine(const std::string& workDir, const std::string& envNames, const std::string& command,
                          bool needRoot);

}  // namespace oxu

#endif
