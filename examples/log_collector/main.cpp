// log_collector: a log service that prints what supervisors and other hosts forward to it, and sums it up.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Collector.h"
#include "common/Host.h"
#include "common/Log.h"
#include "oxu/CApi.h"

namespace {

const char* const kHelp = R"(Usage: log_collector --listen IP:PORT [--json] [--report FILE]

Prints what supervisors and other hosts forward to it, and sums it up in the end, as JSON. SIGINT, SIGTERM, SIGHUP or
SIGQUIT ends it; a second one does so where standard output stands still.

  --listen IP:PORT  the address to listen on; with port 0 the system chooses one
  --json            print each line as an object {"name":...,"peer":"IP:PORT","text":...,"time":...}, with the time in
                    UTC as RFC 3339 has it. Nothing else is on standard output then
  --report FILE     write the summary to FILE, instead of to standard output or, with --json, standard error
  --help            print this

Example:

  log_collector --listen 127.0.0.1:7979
  supervisor --config FILE --log-service 127.0.0.1:7979
)";

// Log pipelines mostly take lines of 8 KiB, into which such a text fits with its escapes.
constexpr std::size_t kLongestJsonText = 4000;

// Returns standard output for lines of JSON. What the logger and the library print goes to standard error from now on.
std::FILE* takeStandardOutput() {
  std::FILE* file = ::fdopen(::dup(STDOUT_FILENO), "w");
  if (file == nullptr) throw std::runtime_error("there is no standard output");
  std::setvbuf(file, nullptr, _IOLBF, BUFSIZ);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  return file;
}

std::string textOf(collector::Clock::time_point time) {
  const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = sinceEpoch / 1000;
  std::tm utc{};
  char text[32];
  std::strftime(text, sizeof text, "%FT%T.", ::gmtime_r(&seconds, &utc));
  return text + std::to_string(1000 + sinceEpoch % 1000).substr(1) + "Z";
}

void writeJson(std::FILE* file, const collector::Line& line) {
  oxu::json::Json object;
  object["time"] = textOf(line.time);
  object["peer"] = line.peer;
  object["name"] = line.name;
  object["text"] = line.text;
  std::fputs((object.toJson() + "\n").c_str(), file);
}

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&set, signal);
  return set;
}

int collect(const common::Address& address, std::FILE* json, const std::string& report) {
  common::installLog();
  collector::Collector collector(json != nullptr ? kLongestJsonText : common::kLongestLogLine,
                                 [json](const collector::Line& line) {
                                   if (json != nullptr) return writeJson(json, line);
                                   common::logOutput(line.name, line.text, common::Controls::kReplaced);
                                 });
  const bool isListening = collector.start(address);
  if (isListening) {
    common::logLine(oxu::INFO, "listening on " + address.ip + ":" + std::to_string(collector.port()));
    const sigset_t signals = stopSignals();
    int signal = 0;
    ::sigwait(&signals, &signal);
    // The next signal ends a collector that waits for a console which stands still.
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    common::becomeImpatient();
    collector.stop();
  }
  common::uninstallLog();
  if (!isListening) return 1;
  const bool isComplete = json == nullptr || (std::ferror(json) == 0 && std::fclose(json) == 0);
  if (!isComplete) std::cerr << "standard output did not take all lines\n";
  const bool isReported = common::writeReport(collector.summary(), report, json != nullptr ? std::cerr : std::cout);
  return isReported && isComplete ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Option options;
  for (const char* name : {"listen", "report"}) options.addOption(name, Option::RequiredValue, "");
  for (const char* name : {"json", "help"}) options.addOption(name, Option::NoValue, "");
  std::string json, report;
  common::Address address;
  const auto read = [&] {
    address = common::readAddress(common::requiredValue(options, "listen"), 0);
    options.getOptionValue("json", json);
    options.getOptionValue("report", report);
  };
  const auto run = [&] {
    // Blocked before the first thread starts, so that no thread but the one in sigwait takes these signals.
    const sigset_t signals = stopSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return collect(address, json.empty() ? nullptr : takeStandardOutput(), report);
  };
  return common::runHost(argc, argv, options, kHelp, read, run);
}
