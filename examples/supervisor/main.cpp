// supervisor: runs commands side by side, prints what they write, and restarts those that quit.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Supervisor.h"
#include "oxu/CApi.h"

namespace {

constexpr int kExitUsage = 2;
constexpr std::size_t kLongestName = 64;

std::atomic<bool> stopSignalled{false};
std::atomic<int> stopSignals{0};

// The third one ends a supervisor that waits for a console which stands still.
void handleStopSignal(int signal) {
  stopSignalled = true;
  if (++stopSignals == 3) ::_exit(128 + signal);
}

int usage(const char* program, const std::string& fault) {
  std::fprintf(stderr,
               "%s: %s\n"
               "usage: %s [--restart N] NAME=COMMAND...\n"
               "  Runs each COMMAND with bash and prints its output line by line.\n"
               "  --restart N  start a command again when it quits, at most N times (0)\n"
               "Ctrl-C, or SIGTERM, kills all of them.\n",
               program, fault.c_str(), program);
  return kExitUsage;
}

bool parseCount(const char* text, int& count) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || value < 0 || value > 1000000) return false;
  count = static_cast<int>(value);
  return true;
}

void catchStopSignals() {
  struct sigaction action {};
  action.sa_handler = handleStopSignal;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::sigaction(signal, &action, nullptr);
}

// The logger discards what it has not printed when it is uninstalled.
void letTheLoggerFinish() { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  int restarts = 0;
  if (argc > first && std::strcmp(argv[first], "--restart") == 0) {
    if (argc < 3 || !parseCount(argv[2], restarts)) return usage(argv[0], "--restart takes a count");
    first = 3;
  }
  std::vector<std::pair<std::string, std::string>> commands;
  for (int i = first; i < argc; ++i) {
    const std::string argument = argv[i];
    const std::size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    if (equals == std::string::npos || name.empty() || name.size() > kLongestName) {
      return usage(argv[0], "'" + argument + "' is not NAME=COMMAND");
    }
    for (const auto& command : commands) {
      if (command.first == name) return usage(argv[0], "two commands are called '" + name + "'");
    }
    commands.emplace_back(name, argument.substr(equals + 1));
  }
  if (commands.empty()) return usage(argv[0], "no command given");

  // A command that is launched while lines are printed one by one would repeat its own text in its output.
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  install_log_task();
  catchStopSignals();
  {
    supervisor::Supervisor supervisor(restarts);
    for (const auto& [name, command] : commands) supervisor.add(name, command);
    supervisor.run([] { return stopSignalled.exchange(false); });
    letTheLoggerFinish();
    supervisor.printSummary();
  }
  uninstall_log_task();
  return 0;
}
