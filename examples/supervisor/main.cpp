// supervisor: runs the commands of an INI file side by side, prints what they write, restarts those that end, and
// reports what became of them.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Config.h"
#include "Supervisor.h"
#include "common/Address.h"
#include "common/Host.h"
#include "common/Log.h"
#include "oxu/CApi.h"

namespace {

const char* const kHelp = R"(Usage: supervisor --config FILE [--log-service IP:PORT] [--report FILE] [-v]

Runs the commands of an INI file side by side, prints what they write, starts them again when they end, and sums up.
SIGINT, SIGTERM, SIGHUP or SIGQUIT ends them all, and the supervisor with them; a second one kills them at once.

  --config FILE, -c FILE  the INI file
  --log-service IP:PORT   forward all output to a log service, such as log_collector
  --report FILE           write the summary, which is JSON, to FILE instead of standard output
  -v                      print more
  --help                  print this

Each section of the file is a command, named by its header:

  command   the command line, for bash
  restart   how often to start it again when it ends; 0 unless given. After a run of less than 10 seconds the next
            start waits 1 second, then 2, 4, and so on up to 30
  grace     seconds from SIGTERM to SIGKILL when it is ended; 5 unless given, 0 kills at once
  show      which lines of each run to print: all, ends (the first and the last), none
  blocking  true: it waits where its output is read too slowly, and loses none of it
  workdir   the directory to run in
  root      true: run it with sudo, unless the supervisor is root
  env       names of variables to export in front of it, separated by commas
  buffer    bytes of output to read at once; 16384 unless given

The section [supervisor] is for all of them:

  restart, grace  for each command that has none of its own
  log_service     IP:PORT, as --log-service
  report          a file, as --report
  password_env    the name of the variable that holds the password for sudo

Example:

  [supervisor]
  restart = 1000
  [web]
  command = exec python3 -m http.server --bind 127.0.0.1 8000
  workdir = /srv/www
  blocking = true
)";

std::atomic<int> stopSignals{0};
std::atomic<std::int64_t> lastSignalMs{-1000};

// A signal within 200 ms of the previous one counts as the same: timeout(1) sends one to the process and one to its
// group. The third signal ends a supervisor that waits for a console which stands still.
void handleStopSignal(int signal) {
  using std::chrono::milliseconds;
  const auto now = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
  std::int64_t last = lastSignalMs;
  if (now.count() - last < 200 || !lastSignalMs.compare_exchange_strong(last, now.count())) return;
  common::becomeImpatient();
  if (++stopSignals == 3) ::_exit(128 + signal);
}

void setSignalActions() {
  struct sigaction action {};
  action.sa_handler = handleStopSignal;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::sigaction(signal, &action, nullptr);
  // Where SIGCHLD is ignored, the system tells nobody how a child has ended.
  std::signal(SIGCHLD, SIG_DFL);
}

oxu::json::Json supervise(const supervisor::Config& config, bool isVerbose) {
  // A command has no terminal to read from.
  if (std::freopen("/dev/null", "r", stdin) == nullptr) throw std::runtime_error("/dev/null cannot be opened");
  // With a line-buffered stdout, a launched command would announce itself in its output.
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  common::installLog();
  set_log_level(isVerbose ? oxu::DEBUG : oxu::INFO);
  setSignalActions();
  oxu::json::Json report;
  {
    supervisor::Supervisor supervisor(config);
    supervisor.run([] { return stopSignals.load(); });
    report = supervisor.report();
  }
  common::uninstallLog();
  return report;
}

}  // namespace

int main(int argc, char** argv) {
  Option options;
  for (const char* name : {"config", "c", "report", "log-service"}) options.addOption(name, Option::RequiredValue, "");
  for (const char* name : {"v", "help"}) options.addOption(name, Option::NoValue, "");
  std::string path, report, service, verbose;
  common::Address address;
  const auto read = [&] {
    if (!options.getOptionValue("c", path)) path = common::requiredValue(options, "config");
    options.getOptionValue("report", report);
    if (options.getOptionValue("log-service", service)) address = common::readAddress(service);
    options.getOptionValue("v", verbose);
  };
  const auto run = [&] {
    supervisor::Config config = supervisor::readConfig(path);
    if (address.port != 0) config.logService = address;
    if (report.empty()) report = config.report;
    return common::writeReport(supervise(config, !verbose.empty()), report, std::cout) ? 0 : 1;
  };
  return common::runHost(argc, argv, options, kHelp, read, run);
}
