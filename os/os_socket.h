// IPv4 sockets of the portability library: opening, configuring and using them. Waiting is in os_socket_wait.h.
//
// Every function may be called from any thread. A function that fails returns -1, or false where it returns bool;
// os_socket_get_errno_code() tells why. None raises SIGPIPE. The mode selects nothing.
#ifndef OS_SOCKET_H
#define OS_SOCKET_H

#include <sys/socket.h>

#include <cstdint>

// The exported header for sockets declares the same name; the compiler refuses declarations that differ.
using RT_MODE = std::uint32_t;

// The mode that 0 stands for.
constexpr RT_MODE get_default_rt_mode() { return 1; }

// Linux sockets need neither call.
inline void os_socket_init_library() {}
inline void os_socket_clear_library() {}

// The errno number of the latest failure of one of these functions in this thread, whatever has been called since.
int os_socket_get_errno_code();

// Both return a close-on-exec handle above 2, which the caller gives to os_socket_close.
//
// Where no descriptor or memory is free, os_socket_accept pauses for 100 ms before it fails. The connection stays in
// the queue, and a caller that tries again neither spins nor floods its log. No other failure pauses.
int os_socket(int family, int type, int protocol, RT_MODE mode);
int os_socket_accept(int fd, void* address, socklen_t* length, RT_MODE mode);

int os_socket_close(int fd, RT_MODE mode);

// An address is a sockaddr_in; `length` is its size.
int os_socket_bind(int fd, const void* address, socklen_t length, RT_MODE mode);
int os_socket_listen(int fd, int backlog, RT_MODE mode);
int os_socket_connect(int fd, const void* address, socklen_t length, RT_MODE mode);
int os_socket_get_sock_name(int fd, void* address, socklen_t* length, RT_MODE mode);
int os_socket_get_peer_name(int fd, void* address, socklen_t* length, RT_MODE mode);

// The number of bytes sent or received. A negative length fails with EINVAL.
int os_socket_send(int fd, const void* data, int length, int flags, RT_MODE mode);
int os_socket_recv(int fd, void* data, int length, int flags, RT_MODE mode);
int os_socket_send_to(int fd, const void* data, int length, int flags, const void* address, socklen_t addressLength,
                      RT_MODE mode);
int os_socket_recv_from(int fd, void* data, int length, int flags, void* address, socklen_t* addressLength,
                        RT_MODE mode);

bool os_socket_get_sock_opt(int fd, int level, int name, void* value, socklen_t* length, RT_MODE mode);
bool os_socket_set_sock_opt(int fd, int level, int name, const void* value, socklen_t length, RT_MODE mode);

// How long a call on a blocking handle waits, in milliseconds; 0 stands for no limit.
bool os_socket_set_send_timeout(int fd, int milliseconds, RT_MODE mode);
bool os_socket_set_recv_timeout(int fd, int milliseconds, RT_MODE mode);

// After this call, a datagram that nobody took causes an error on a connected socket only.
bool os_socket_disable_udp_unreached_report(int fd);

int os_socket_ioctl(int fd, unsigned long request, void* argument, RT_MODE mode);

#endif
