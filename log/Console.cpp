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

// Waits for room up to `timeoutMs`. True also for a console on which a write fails at once.
bool hasRoom(int fd, int timeoutMs) {
  pollfd console{fd, POLLOUT, 0};
  return ::poll(&console, 1, timeoutMs) != 0;
}

// Writes the line as a whole. False, with nothing written, for a console without room for the first byte. True also
// where the console fails: such a line is dropped.
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

// The same for a stream, whose lock is held while the line is written. That takes long on a console that blocks, and on
// one that has taken a part of the line. On a non-blocking console without room the lock is given up at once.
bool tryPrint(std::FILE* stream, int fd, const char* line, std::size_t size) {
  const StreamLock lock(stream);
  const bool hasText = ::__fpending(stream) != 0;
  // The first use makes stdio choose the buffering, by line for a terminal. So the first line goes through stdio.
  const bool isUnused = ::__fbufsize(stream) == 0;
  // Text that stdio writes is lost where there is no room.
  if (fd != -1 && (hasText || isUnused) && !hasRoom(fd, 0)) return false;
  // A stream without a descriptor is one that the host has made, over memory for example.
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
