#include "os/os_socket.h"

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "os/os_descriptor.h"
#include "os/os_thread.h"

namespace {

constexpr int kNoRoomPauseMs = 100;

thread_local int lastError = 0;

// Returns a call's result, and keeps the reason of a failure for os_socket_get_errno_code.
template <typename Result>
int checked(Result result) {
  if (result == -1) lastError = errno;
  return static_cast<int>(result);
}

int failed(int error) {
  errno = error;
  return checked(-1);
}

sockaddr* toSockaddr(void* address) { return static_cast<sockaddr*>(address); }
const sockaddr* toSockaddr(const void* address) { return static_cast<const sockaddr*>(address); }

// Moves a new handle off the numbers 0 to 2. Closes a handle that cannot be moved: in a host without standard
// descriptors, what the host prints would go to the peer.
int offStandardNumbers(int fd) {
  const int moved = os_descriptor_off_standard(fd);
  if (moved == -1 || moved > STDERR_FILENO) return moved;
  ::close(moved);
  return failed(EMFILE);
}

bool isLackOfRoom(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

bool setTimeout(int fd, int name, int milliseconds, RT_MODE mode) {
  const timeval time{milliseconds / 1000, milliseconds % 1000 * 1000L};
  return os_socket_set_sock_opt(fd, SOL_SOCKET, name, &time, sizeof time, mode);
}

}  // namespace

int os_socket_get_errno_code() { return lastError; }

int os_socket(int family, int type, int protocol, RT_MODE /*mode*/) {
  return offStandardNumbers(checked(::socket(family, type | SOCK_CLOEXEC, protocol)));
}

int os_socket_accept(int fd, void* address, socklen_t* length, RT_MODE /*mode*/) {
  const int client = offStandardNumbers(checked(::accept4(fd, toSockaddr(address), length, SOCK_CLOEXEC)));
  // The connection stays in the queue, so without the pause a caller's loop would find it again at once.
  if (client == -1 && isLackOfRoom(lastError)) os_thread_sleep_milliseconds(kNoRoomPauseMs, 0);
  return client;
}

int os_socket_close(int fd, RT_MODE /*mode*/) { return checked(::close(fd)); }

int os_socket_bind(int fd, const void* address, socklen_t length, RT_MODE /*mode*/) {
  return checked(::bind(fd, toSockaddr(address), length));
}

int os_socket_listen(int fd, int backlog, RT_MODE /*mode*/) { return checked(::listen(fd, backlog)); }

int os_socket_connect(int fd, const void* address, socklen_t length, RT_MODE /*mode*/) {
  return checked(::connect(fd, toSockaddr(address), length));
}

int os_socket_get_sock_name(int fd, void* address, socklen_t* length, RT_MODE /*mode*/) {
  return checked(::getsockname(fd, toSockaddr(address), length));
}

int os_socket_get_peer_name(int fd, void* address, socklen_t* length, RT_MODE /*mode*/) {
  return checked(::getpeername(fd, toSockaddr(address), length));
}

int os_socket_send(int fd, const void* data, int length, int flags, RT_MODE mode) {
  return os_socket_send_to(fd, data, length, flags, nullptr, 0, mode);
}

int os_socket_recv(int fd, void* data, int length, int flags, RT_MODE mode) {
  return os_socket_recv_from(fd, data, length, flags, nullptr, nullptr, mode);
}

int os_socket_send_to(int fd, const void* data, int length, int flags, const void* address, socklen_t addressLength,
                      RT_MODE /*mode*/) {
  if (length < 0) return failed(EINVAL);
  const auto size = static_cast<std::size_t>(length);
  return checked(::sendto(fd, data, size, flags | MSG_NOSIGNAL, toSockaddr(address), addressLength));
}

int os_socket_recv_from(int fd, void* data, int length, int flags, void* address, socklen_t* addressLength,
                        RT_MODE /*mode*/) {
  if (length < 0) return failed(EINVAL);
  return checked(::recvfrom(fd, data, static_cast<std::size_t>(length), flags, toSockaddr(address), addressLength));
}

bool os_socket_get_sock_opt(int fd, int level, int name, void* value, socklen_t* length, RT_MODE /*mode*/) {
  return checked(::getsockopt(fd, level, name, value, length)) == 0;
}

bool os_socket_set_sock_opt(int fd, int level, int name, const void* value, socklen_t length, RT_MODE /*mode*/) {
  return checked(::setsockopt(fd, level, name, value, length)) == 0;
}

bool os_socket_set_send_timeout(int fd, int milliseconds, RT_MODE mode) {
  return setTimeout(fd, SO_SNDTIMEO, milliseconds, mode);
}

bool os_socket_set_recv_timeout(int fd, int milliseconds, RT_MODE mode) {
  return setTimeout(fd, SO_RCVTIMEO, milliseconds, mode);
}

// A new handle has this option off. A handle that a host made and attached may have it on.
bool os_socket_disable_udp_unreached_report(int fd) {
  const int off = 0;
  return os_socket_set_sock_opt(fd, IPPROTO_IP, IP_RECVERR, &off, sizeof off, 0);
}

int os_socket_ioctl(int fd, unsigned long request, void* argument, RT_MODE /*mode*/) {
  return checked(::ioctl(fd, request, argument));
}
