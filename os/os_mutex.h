// Mutexes of the portability library, behind 64-bit handles. Handle 0 stands for no mutex: every operation on it fails
// and does nothing. Every function may be called from any thread.
#ifndef OS_MUTEX_H
#define OS_MUTEX_H

#include <cstdint>

using os_mutex_handle = std::uint64_t;

// Makes a recursive mutex (asked for as 1, 2, 0): the thread that holds it may lock it again. Returns 0 when no mutex
// can be made. The caller gives it to os_mutex_destroy.
os_mutex_handle os_mutex_create(int type, int recursion, int option);

bool os_mutex_lock(os_mutex_handle mutex);
bool os_mutex_unlock(os_mutex_handle mutex);

// Destroys a mutex that nobody holds, and sets the handle to 0.
void os_mutex_destroy(os_mutex_handle* mutex);

#endif
