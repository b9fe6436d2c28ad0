#include "os/os_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int os_descriptor_off_standard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (moved == -1) return fd;
  ::close(fd);
  return moved;
}

void os_descriptor_close(int& fd) {
  const int error = errno;
  if (fd != -1) ::close(fd);
  fd = -1;
  errno = error;
}

bool os_descriptor_pipe(int (&fds)[2]) {
  if (::pipe(fds) != 0) return false;
  for (int& end : fds) {
    end = os_descriptor_off_standard(end);
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  return true;
}
