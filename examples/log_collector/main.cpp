// log_collector: a log service that prints what supervisors and other hosts forward to it, and sums it up.
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "Collector.h"
#include "common/Log.h"
#include "oxu/CApi.h"
#include "oxu/Option.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&set, signal);
  return set;
}

int collect(const common::Address& address) {
  // Blocked before the first thread starts, so that every thread leaves these signals to the wait below.
  const sigset_t signals = stopSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  install_log_task();
  collector::Collector collector;
  const bool isListening = collector.start(address);
  if (isListening) {
    common::logLine(oxu::INFO, "listening on " + address.ip + ":" + std::to_string(collector.port()));
    int signal = 0;
    ::sigwait(&signals, &signal);
    // The next one ends a collector that waits for a console which stands still.
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    common::becomeImpatient();
    collector.stop();
  }
  const unsigned long givenUp = common::finishLog();
  uninstall_log_task();
  if (givenUp != 0) std::cerr << givenUp << " lines were not printed, the console being too slow\n";
  if (!isListening) return kExitFailure;
  std::cout << collector.summary().toString() << std::endl;
  return std::cout ? 0 : kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
  Option options;
  options.addOption("listen", Option::RequiredValue, "IP:PORT to listen on; port 0: one of the system's choosing");
  options.addOption("help", Option::NoValue, "print this and end");
  try {
    options.parse(argc, argv);
    std::string value;
    if (options.getOptionValue("help", value)) return options.printUsage(), 0;
    if (!options.getOptionValue("listen", value)) throw std::runtime_error("Option --listen is required.");
    return collect(common::readAddress(value, 0));
  } catch (const std::exception& fault) {
    std::cerr << argv[0] << ": " << fault.what() << "\n";
    options.printUsage();
    return kExitUsage;
  }
}
