// The pause of a thread that finds nothing to do, which the threads that bring work can end early.
//
// Invariants.
//   P1  m_is_pausing is true only between the pausing thread's announcement and the moment when somebody takes it back.
//   P2  Who takes it back, by an exchange that finds it true, is one thread alone: the pausing one, or one that ends
//       the pause and then posts. So each pause costs one post at most, and no post is left over for a later pause.
#ifndef LOG_IDLEPAUSE_H
#define LOG_IDLEPAUSE_H

#include <atomic>

#include "os/os_semaphore.h"

namespace oxu {

class IdlePause {
 public:
  // By the one thread that pauses: returns after `milliseconds`, or once the pause is ended, or at once where
  // `isWorkDue()` holds already.
  template <class IsWorkDue>
  void wait(int milliseconds, const IsWorkDue& isWorkDue) {
    m_is_pausing = true;
    // Looked at behind the announcement: work that was due before has found nobody to wake.
    const bool isEnded = !isWorkDue() && m_end.wait(milliseconds);
    // Taken back here (P2), or by a thread whose post is on its way.
    if (!isEnded && !m_is_pausing.exchange(false)) m_end.wait(-1);
  }

  // By any thread, after it has brought work.
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
