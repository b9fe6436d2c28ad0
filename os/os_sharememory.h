// The releasing side of the portability library's shared memory: what the owner of a mapped segment calls to give it
// back. A segment is used by one thread at a time.
#ifndef OS_SHAREMEMORY_H
#define OS_SHAREMEMORY_H

#include <cstddef>

// A mapped segment. `name` is the segment's name as given to shm_open.
struct os_sharememory {
  void* address;
  std::size_t size;
  char name[256];
};

using os_sharememory_handle = os_sharememory*;

// Unmaps the segment. With `owner` 1 its name is removed as well, so the memory is freed with the last mapping; with 0
// other processes can still attach the segment.
void os_sharememory_close(os_sharememory_handle handle, int owner);

// Frees the handle (made by new) and sets it to null.
void os_sharememory_destroy(os_sharememory_handle* handle);

#endif
