#include "log/Console.h"

#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace oxu {

namespace {

constexpr int kRoomWaitMs = 10;

class StreamLock {
 public:
  explicit StreamLock(std::FILE* stream) : m_stream(stream) { ::flockfile(m_stream); }
  ~StreamLock() { ::funlockfile(m_stream); }
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

 private:
  std::FILE* const m_stream;
};

// True also where a write fails at once.
bool hasRoom(int fd, int timeoutMs) {
  pollfd console{fd, POLLOUT, 0};
  return ::poll(&console, 1, timeoutMs) != 0;
}

// Writes all of the line, or nothing: false for a console that has no room for the first byte.
bool tryWrite(int fd, const char* line, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t written = ::write(fd, line + done, size - done);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno == EAGAIN && done == 0) {
      return false;
    } else if (errno == EAGAIN) {
      hasRoom(fd, kRoomWaitMs);
    } else if (errno != EINTR) {
      return true;
    }
  }
  return true;
}

// The same for a stream. The lock is held while a line is written, never while nothing of it is.
bool tryPrint(std::FILE* stream, int fd, const char* line, std::size_t size) {
  const StreamLock lock(stream);
  if (fd == -1) {
    // A stream that the host has made of something else.
    std::fwrite(line, 1, size, stream);
    std::fflush(stream);
    return true;
  }
  if (::__fpending(stream) != 0) {
    if (!hasRoom(fd, 0)) return false;
    std::fflush(stream);
  }
  return tryWrite(fd, line, size);
}

}  // namespace

void Console::write(const char* line, std::size_t size) {
  std::FILE* const stream = stdout;
  const int fd = ::fileno(stream);
  while (!tryPrint(stream, fd, line, size) && m_running) hasRoom(fd, kRoomWaitMs);
}

}  // namespace oxu
