// A counting semaphore of the portability library.
#ifndef OS_SEMAPHORE_H
#define OS_SEMAPHORE_H

#include <semaphore.h>

// Begins with a count of 0. post and wait may be called from any thread; they take no lock and allocate nothing.
class os_semaphore {
 public:
  os_semaphore();
  ~os_semaphore();
  os_semaphore(const os_semaphore&) = delete;
  os_semaphore& operator=(const os_semaphore&) = delete;

  // Adds one to the count.
  void post();

  // Takes one from the count, for which it waits up to `milliseconds` (negative: without a limit) of the monotonic
  // clock. False when the time is over. Signals do not shorten the wait.
  bool wait(int milliseconds);

 private:
  sem_t m_semaphore;
};

#endif
