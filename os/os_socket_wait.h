// Waiting for sockets, and looking at their state. Nothing here consumes a pending error of a handle: the next read or
// write gets that error. Any number of threads may wait, on descriptors of any number.
#ifndef OS_SOCKET_WAIT_H
#define OS_SOCKET_WAIT_H

#include "os/os_socket.h"

// os_socket_readable and os_socket_writable wait up to `timeoutMs` milliseconds; a negative number waits without a
// limit. A signal does not shorten the wait. Both are false at once for an invalid handle. Where `result` is not null,
// they store in it:
// -  1: the result is true;
// -  0: the time is over;
// - -1: what is waited for cannot come.

// True when a read would not block: there is data, the end of the stream, an error to collect, or on a listening handle
// a pending connection.
bool os_socket_readable(int fd, int timeoutMs, int* result, RT_MODE mode);

// True when a write would not block. For a connecting handle that is once the connection is established. False at once
// for a handle whose connection was refused or never begun.
bool os_socket_writable(int fd, int timeoutMs, int* result, RT_MODE mode);

// True for a connection with a pending error, such as a reset or a time-out, and for an invalid handle. False for a
// connection that the peer closed in order. False while bytes can still be read, not counting urgent ones and those
// behind them.
bool os_socket_is_link_broken(int fd, RT_MODE mode);

#endif
