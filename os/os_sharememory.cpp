#include "os/os_sharememory.h"

#include <sys/mman.h>

void os_sharememory_close(os_sharememory_handle handle, int owner) {
  if (handle->address != nullptr) ::munmap(handle->address, handle->size);
  handle->address = nullptr;
  if (owner != 0) ::shm_unlink(handle->name);
}

void os_sharememory_destroy(os_sharememory_handle* handle) {
  delete *handle;
  *handle = nullptr;
}
