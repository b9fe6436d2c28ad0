// The pause of a thread that finds nothing to do. The threads that bring work can end the pause early.
//
// Invariants.
//   P1  m_is_pausing is true from the pausing thread's announcement until one thread takes the announcement back.
//   P2  One thread alone takes it back, by an exchange that finds true: the pausing thread, or a thread that ends the
//       pause and then posts. So a pause costs one post at most, and no post is left over for a later pause.
#ifndef LOG_IDLEPAUSE_H
#define LOG_IDLEPAUSE_H

#include <atomic>

#include "os/os_semaphore.h"

namespace oxu {

class IdlePause {
 public:
  // For the one thread that pauses. Returns after `milliseconds`, when another thread ends the pause, or at once where
  // `isWorkDue()` is true already.
  template <class IsWorkDue>
  void wait(int milliseconds, const IsWorkDue& isWorkDue) {
    m_is_pausing = true;
    // After the announcement: whoever brought work before it saw no pause to end.
    const bool isEnded = !isWorkDue() && m_end.wait(milliseconds);
    // Takes the announcement back (P2). Where another thread has done so, its post is on the way, and is used up here.
    if (!isEnded && !m_is_pausing.exchange(false)) m_end.wait(-1);
  }

  // For any thread, after it has brought work.
  bool isWaiting() const { return m_is_pausing; }
  void end() {
    if (m_is_pausing.exchange(false)) m_end.post();
  }

 private:
  std::atomic<bool> m_is_pausing{false};
  os_semaphore m_end;
};

}  // namespace oxu

#endif
