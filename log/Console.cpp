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

// The same for a stream. What goes through stdio finds room, where the console tells. The stream's lock is held while a
// line is written, which may take long on a console that blocks, and on one that has taken a part of the line. It is
// not held while a console that does not block has no room at all.
bool tryPrint(std::FILE* stream, int fd, const char* line, std::size_t size) {
  const StreamLock lock(stream);
  const bool hasText = ::__fpending(stream) != 0;
  // The first line makes stdio look what the stream leads to, as any use of it does: a terminal is line-buffered.
  const bool isUnused = ::__fbufsize(stream) == 0;
  if (fd != -1 && (hasText || isUnused) && !hasRoom(fd, 0)) return false;
  // A stream without a descriptor is something that the host has made.
  const bool isThroughStdio = fd == -1 || isUnused;
  if (isThroughStdio) std::fwrite(line, 1, size, stream);
  if (isThroughStdio || hasText) std::fflush(stream);
  return isThroughStdio || tryWrite(fd, line, size);
}

}  // namespace

void Console::write(const char* line, std::size_t size) {
  std::FILE* const stream = stdout;
  const int fd = ::fileno(stream);
  while (!tryPrint(stream, fd, line, size) && m_running) hasRoom(fd, kRoomWaitMs);
}

}  // namespace oxu
