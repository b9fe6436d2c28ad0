// Waiting for sockets, and looking at their state. Nothing here consumes a pending error of a handle, which the next
// read or write gets. Any number of threads may wait, on descriptors of any number.
#ifndef OS_SOCKET_WAIT_H
#define OS_SOCKET_WAIT_H

#include "os/os_socket.h"

// Wait for up to `timeoutMs` milliseconds (negative: without a limit); a signal does not shorten the wait. Both are
// false at once for an invalid handle. With `result` not null it tells more: 1 for true; 0 when the time is over; -1
// when what is waited for cannot come.

// True when a read would not block: data, the end of the stream, an error to collect, or a pending connection of a
// listening handle.
bool os_socket_readable(int fd, int timeoutMs, int* result, RT_MODE mode);

// True when a write would not block; for a connecting handle only when the connection is established. False at once
// for one whose connection was refused or was never begun.
bool os_socket_writable(int fd, int timeoutMs, int* result, RT_MODE mode);

// True for a connection with a pending error (one that was reset or has timed out, for example), and for an invalid
// handle. An orderly close by the peer is no broken link, and a link with bytes to read (urgent ones, and what follows
// them, aside) is not broken yet.
bool os_socket_is_link_broken(int fd, RT_MODE mode);

#endif
