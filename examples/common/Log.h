// Logging that waits for a slow console.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include <string>

namespace common {

// Logs one line, unless its level is below get_log_level(). Where the console is slower than the output it waits
// for room, and so does the command behind it. From any thread.
void logLine(int level, const std::string& text);

// From now on logLine waits for at most a second in all, and gives up its line then. May be called from a signal
// handler.
void becomeImpatient();

// Waits until the logger has printed what it holds, as far as the console takes it; not for long once impatient.
// Returns how many lines were given up.
unsigned long finishLog();

}  // namespace common

#endif
