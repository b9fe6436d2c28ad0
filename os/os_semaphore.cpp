#include "os/os_semaphore.h"

#include <time.h>

#include <cerrno>

#include "os/os_clock.h"

os_semaphore::os_semaphore() : m_semaphore() { ::sem_init(&m_semaphore, 0, 0); }

os_semaphore::~os_semaphore() { ::sem_destroy(&m_semaphore); }

void os_semaphore::post() { ::sem_post(&m_semaphore); }

bool os_semaphore::wait(int milliseconds) {
  const os_deadline deadline(milliseconds);
  const timespec end{deadline.end().seconds, deadline.end().nanoseconds};
  int result = -1;
  do {
    result = milliseconds < 0 ? ::sem_wait(&m_semaphore) : ::sem_clockwait(&m_semaphore, CLOCK_MONOTONIC, &end);
  } while (result == -1 && errno == EINTR);
  return result == 0;
}
