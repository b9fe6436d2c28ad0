// supervisor: runs the commands of an INI file side by side, prints what they write, restarts those that quit, and
// reports what became of them.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Config.h"
#include "Supervisor.h"
#include "common/Address.h"
#include "common/Log.h"
#include "oxu/CApi.h"
#include "oxu/Option.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

std::atomic<bool> stopSignalled{false};
std::atomic<int> stopSignals{0};

// The third one ends a supervisor that waits for a console which stands still.
void handleStopSignal(int signal) {
  stopSignalled = true;
  common::becomeImpatient();
  if (++stopSignals == 3) ::_exit(128 + signal);
}

void catchStopSignals() {
  struct sigaction action {};
  action.sa_handler = handleStopSignal;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::sigaction(signal, &action, nullptr);
}

struct CommandLine {
  std::string config;
  std::string report;
  common::Address logService;
  bool isVerbose = false;
};

void declareOptions(Option& options) {
  options.addOption("config", Option::RequiredValue, "the INI file with the commands");
  options.addOption("c", Option::RequiredValue, "short for --config");
  options.addOption("report", Option::RequiredValue, "the file for the summary instead of standard output");
  options.addOption("log-service", Option::RequiredValue, "IP:PORT to forward output to, as frames");
  options.addOption("v", Option::NoValue, "print more");
  options.addOption("help", Option::NoValue, "print this and end");
}

// Throws std::exception where the command line is wrong.
CommandLine readCommandLine(const Option& options) {
  CommandLine line;
  std::string ignored;
  if (!options.getOptionValue("config", line.config) && !options.getOptionValue("c", line.config)) {
    throw std::runtime_error("Option --config is required.");
  }
  options.getOptionValue("report", line.report);
  std::string service;
  if (options.getOptionValue("log-service", service)) line.logService = common::readAddress(service);
  line.isVerbose = options.getOptionValue("v", ignored);
  return line;
}

oxu::json::Json supervise(const supervisor::Config& config, bool isVerbose) {
  // A command that is launched while lines are printed one by one would repeat its own text in its output.
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  install_log_task();
  set_log_level(isVerbose ? oxu::DEBUG : oxu::INFO);
  catchStopSignals();
  oxu::json::Json report;
  {
    supervisor::Supervisor supervisor(config);
    supervisor.run([] { return stopSignalled.exchange(false); });
    report = supervisor.report();
  }
  const unsigned long givenUp = common::finishLog();
  uninstall_log_task();
  if (givenUp != 0) std::cerr << givenUp << " lines were not printed, the console being too slow\n";
  return report;
}

bool writeReport(const oxu::json::Json& report, const std::string& path) {
  if (!path.empty()) {
    std::ofstream file(path);
    if (file << report.toString() << std::endl) return true;
    std::cerr << "the report cannot be written to " << path << ", and goes to standard output\n";
  }
  std::cout << report.toString() << std::endl;
  return path.empty() && std::cout;
}

}  // namespace

int main(int argc, char** argv) {
  Option options;
  declareOptions(options);
  CommandLine line;
  try {
    options.parse(argc, argv);
    std::string ignored;
    if (options.getOptionValue("help", ignored)) return options.printUsage(), 0;
    line = readCommandLine(options);
  } catch (const std::out_of_range&) {
    std::cerr << argv[0] << ": an argument is empty\n";
    options.printUsage();
    return kExitUsage;
  } catch (const std::exception& fault) {
    std::cerr << argv[0] << ": " << fault.what() << "\n";
    options.printUsage();
    return kExitUsage;
  }
  try {
    supervisor::Config config = supervisor::readConfig(line.config);
    if (line.logService.port != 0) config.logService = line.logService;
    const oxu::json::Json report = supervise(config, line.isVerbose);
    const std::string path = line.report.empty() ? config.report : line.report;
    return writeReport(report, path) ? 0 : kExitFailure;
  } catch (const std::exception& fault) {
    std::cerr << argv[0] << ": " << fault.what() << "\n";
    return kExitFailure;
  }
}
