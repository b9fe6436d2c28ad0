#include "net/StatusLine.h"

#include <cstdarg>

#include "os/os_signal.h"

// Flushed line by line, so that what goes to standard output and what goes to standard error stay in their order.
void printStatus(std::FILE* stream, const char* format, ...) {
  const os_signal_pipe_guard noSigpipe;
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream, format, arguments);
  va_end(arguments);
  std::fflush(stream);
}
