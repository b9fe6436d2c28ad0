// The status lines of sockets, log service and client.
#ifndef NET_STATUSLINE_H
#define NET_STATUSLINE_H

#include <cstdio>

// Prints as fprintf does, and lets it out at once. A reader that has gone is no reason to die: no SIGPIPE is raised.
void printStatus(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
