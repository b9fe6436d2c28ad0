#include "os/os_mutex.h"

#include <pthread.h>

#include <memory>
#include <new>

namespace {

pthread_mutex_t* fromHandle(os_mutex_handle mutex) { return reinterpret_cast<pthread_mutex_t*>(mutex); }

bool initRecursive(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  if (::pthread_mutexattr_init(&attributes) != 0) return false;
  const bool made = ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                    ::pthread_mutex_init(mutex, &attributes) == 0;
  ::pthread_mutexattr_destroy(&attributes);
  return made;
}

}  // namespace

os_mutex_handle os_mutex_create(int /*type*/, int /*recursion*/, int /*option*/) {
  std::unique_ptr<pthread_mutex_t> mutex(new (std::nothrow) pthread_mutex_t);
  if (!mutex || !initRecursive(mutex.get())) return 0;
  return reinterpret_cast<os_mutex_handle>(mutex.release());
}

bool os_mutex_lock(os_mutex_handle mutex) { return mutex != 0 && ::pthread_mutex_lock(fromHandle(mutex)) == 0; }

bool os_mutex_unlock(os_mutex_handle mutex) { return mutex != 0 && ::pthread_mutex_unlock(fromHandle(mutex)) == 0; }

void os_mutex_destroy(os_mutex_handle* mutex) {
  if (*mutex == 0) return;
  ::pthread_mutex_destroy(fromHandle(*mutex));
  delete fromHandle(*mutex);
  *mutex = 0;
}
