#include "os/os_socket_wait.h"

#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>

#include "os/os_clock.h"

namespace {

// The events of the handle; POLLNVAL where poll fails, 0 when the time is over. Unlike getsockopt, poll leaves a
// pending error pending.
int pollOne(int fd, short events, int timeoutMs) {
  if (fd < 0) return POLLNVAL;
  pollfd handle{fd, events, 0};
  // On a busy handle this first call is enough, and no clock is asked.
  int ready = ::poll(&handle, 1, 0);
  if (ready != 1 && timeoutMs != 0) {
    const os_deadline deadline(timeoutMs);
    do {
      ready = ::poll(&handle, 1, deadline.remainingMs());
    } while (ready == -1 && errno == EINTR);
  }
  return ready == -1 ? POLLNVAL : handle.revents;
}

// False for a stream handle that never had a peer. The system keeps the counts of a connection that is over, and the
// opening of a connection counts in at least one of them.
bool wasEverConnected(int fd) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return true;
  return info.tcpi_delivered != 0 || info.tcpi_bytes_acked != 0 || info.tcpi_bytes_received != 0;
}

// poll reports a stream handle as writable once a third of its send buffer is free. A write needs less.
bool isConnectedWithRoom(int fd) {
  std::uint32_t memory[SK_MEMINFO_VARS] = {};
  socklen_t size = sizeof memory;
  return wasEverConnected(fd) && ::getsockopt(fd, SOL_SOCKET, SO_MEMINFO, memory, &size) == 0 &&
         memory[SK_MEMINFO_WMEM_QUEUED] < memory[SK_MEMINFO_SNDBUF];
}

bool hasUnreadBytes(int fd) {
  int count = 0;
  return ::ioctl(fd, FIONREAD, &count) == 0 && count > 0;
}

bool report(bool isReady, int events, int* result) {
  if (result != nullptr) *result = isReady ? 1 : events == 0 ? 0 : -1;
  return isReady;
}

}  // namespace

bool os_socket_readable(int fd, int timeoutMs, int* result, RT_MODE /*mode*/) {
  const int events = pollOne(fd, POLLIN, timeoutMs);
  // POLLHUP alone means a stream handle that neither listens nor was ever connected. Nothing can arrive there.
  return report((events & (POLLIN | POLLERR)) != 0, events, result);
}

bool os_socket_writable(int fd, int timeoutMs, int* result, RT_MODE /*mode*/) {
  const int events = pollOne(fd, POLLOUT, timeoutMs);
  const bool isOver = (events & (POLLERR | POLLHUP)) != 0;
  if (events == 0 && isConnectedWithRoom(fd)) return report(true, POLLOUT, result);
  const bool isReady = (events & POLLNVAL) == 0 && events != 0 && (!isOver || wasEverConnected(fd));
  return report(isReady, events, result);
}

// A pending error counts once the unread bytes in front of it have been read. After the error has been collected, the
// link looks like one that the peer closed in order: the next read gives the end, the next write fails.
bool os_socket_is_link_broken(int fd, RT_MODE /*mode*/) {
  const int events = pollOne(fd, POLLIN, 0);
  return (events & POLLNVAL) != 0 || ((events & POLLERR) != 0 && !hasUnreadBytes(fd));
}
