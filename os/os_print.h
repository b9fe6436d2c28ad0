// Printing for the host's sake: a standard output or error whose reader has gone is no reason to die. No SIGPIPE is
// raised, and errno stays as it was.
#ifndef OS_PRINT_H
#define OS_PRINT_H

#include <cstdio>

// As fprintf does.
void os_print(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The same, and flushes: lines of several streams stay in their order.
void os_print_now(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

// As perror does: the text and the description of errno, on standard error.
void os_print_error(const char* what);

#endif
