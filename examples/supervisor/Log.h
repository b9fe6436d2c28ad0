// Logging that waits for a slow console.
#ifndef SUPERVISOR_LOG_H
#define SUPERVISOR_LOG_H

#include <string>

namespace supervisor {

// Logs one line; waits up to a second for room. A console that stood still that long is not waited for again
// until it moves. A line that found no room is counted and mentioned in the next one that does.
void logLine(int level, const std::string& text);

}  // namespace supervisor

#endif
