#include "os/os_print.h"

#include <cerrno>
#include <cstdarg>

#include "os/os_signal.h"

namespace {

void print(std::FILE* stream, const char* format, va_list arguments, bool flushes) {
  const int error = errno;
  {
    const os_signal_pipe_guard noSigpipe;
    std::vfprintf(stream, format, arguments);
    if (flushes) std::fflush(stream);
  }
  errno = error;
}

}  // namespace

void os_print(std::FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stream, format, arguments, false);
  va_end(arguments);
}

void os_print_now(std::FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print(stream, format, arguments, true);
  va_end(arguments);
}

void os_print_error(const char* what) {
  const int error = errno;
  {
    const os_signal_pipe_guard noSigpipe;
    std::perror(what);
  }
  errno = error;
}
