// Logging that waits for a slow console.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include <string>

namespace common {

// The longest line in bytes that fits into a record beside the name.
constexpr std::size_t kLongestLogLine = 900;

// Whether control characters are printed as they are, which a terminal obeys, or replaced.
enum class Controls { kKept, kReplaced };

// Starts the logger, with colours only where standard output is a terminal and NO_COLOR is not set.
void installLog();

// Logs one line, unless its level is below get_log_level(). Waits for a console that is slower than the output, and so
// makes the command that wrote the line wait. From any thread.
void logLine(int level, const std::string& text);

// Logs a line of at most kLongestLogLine bytes under the name of what wrote it.
void logOutput(const std::string& name, std::string line, Controls controls);

// From this call on, all calls of logLine and uninstallLog together wait for at most a second. After that, lines that
// find no room are dropped. May be called from a signal handler.
void becomeImpatient();

// Waits until the logger has printed its records, and stops the logger. Prints on standard error how many lines were
// dropped.
void uninstallLog();

}  // namespace common

#endif
