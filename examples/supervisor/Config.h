// What the supervisor is to run, read from its INI file.
#ifndef SUPERVISOR_CONFIG_H
#define SUPERVISOR_CONFIG_H

#include <string>
#include <vector>

#include "common/Address.h"

namespace supervisor {

// Which lines of a run are printed: all, the first and the last, or none.
enum class Show { kAll, kEnds, kNone };

// One section of the file, whose name is the command's.
struct JobConfig {
  std::string name;
  std::string command;
  std::string env;        // names of variables to export, separated by commas
  std::string workdir;    // empty: the supervisor's own
  bool root = false;      // run with sudo, unless the supervisor is root
  bool blocking = false;  // the command waits for its reader instead of losing output
  int restart = 0;        // how often to start it again when it ends
  int grace = 5;          // seconds from SIGTERM to SIGKILL
  Show show = Show::kAll;
  unsigned long buffer = 16384;  // bytes of a chunk of output, at most
};

struct Config {
  std::vector<JobConfig> jobs;
  std::string password;        // for sudo: the value of the variable that password_env names
  common::Address logService;  // where to forward output to; no port: nowhere
  std::string report;          // where to write the summary; empty: standard output
};

// Reads the file. Throws std::runtime_error that names file, section and key where the file cannot be used.
Config readConfig(const std::string& path);

}  // namespace supervisor

#endif
