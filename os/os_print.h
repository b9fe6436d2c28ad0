// Printing on the host's streams. No SIGPIPE is raised: a stream whose reader has gone is no reason for the host to
// end. errno stays as it was. Every function may be called from any thread.
#ifndef OS_PRINT_H
#define OS_PRINT_H

#include <cstdio>

// As fprintf does.
void os_print(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The same, and flushes the stream, so that lines on standard output and standard error stay in their order.
void os_print_now(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

// As perror does: `what` and the description of errno, on standard error.
void os_print_error(const char* what);

#endif
