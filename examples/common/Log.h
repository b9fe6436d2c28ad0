// Logging that waits for a slow console.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include <string>

namespace common {

// What fits into a record beside the name.
constexpr std::size_t kLongestLogLine = 900;

// Whether control characters are printed: a terminal obeys them.
enum class Controls { kKept, kReplaced };

// Starts the logger, with colours only where standard output is a terminal and NO_COLOR is not set.
void installLog();

// Logs one line, unless its level is below get_log_level(). Where the console is slower than the output it waits
// for room, and so does the command behind it. From any thread.
void logLine(int level, const std::string& text);

// Logs a line of at most kLongestLogLine bytes under the name of what wrote it.
void logOutput(const std::string& name, std::string line, Controls controls);

// From now on logLine waits for at most a second in all, and gives up its line then. May be called from a signal
// handler.
void becomeImpatient();

// Stops the logger once it has printed what it holds, as far as the console takes it; does not wait for long once
// impatient. Tells on standard error how many lines were given up.
void uninstallLog();

}  // namespace common

#endif
