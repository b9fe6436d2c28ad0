// A counting semaphore of the portability library. post and wait may be called from any thread; they take no lock and
// allocate nothing.
#ifndef OS_SEMAPHORE_H
#define OS_SEMAPHORE_H

#include <semaphore.h>

// Begins with a count of 0.
class os_semaphore {
 public:
  os_semaphore();
  ~os_semaphore();
  os_semaphore(const os_semaphore&) = delete;
  os_semaphore& operator=(const os_semaphore&) = delete;

  // Adds one to the count.
  void post();

  // Waits until the count is above 0 and takes one from it. False when `milliseconds` of the monotonic clock are over;
  // a negative number waits without a limit. Signals do not shorten the wait.
  bool wait(int milliseconds);

 private:
  sem_t m_semaphore;
};

#endif
