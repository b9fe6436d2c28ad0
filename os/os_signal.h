// Signal masks of the portability library. Each function and guard acts on the calling thread alone.
#ifndef OS_SIGNAL_H
#define OS_SIGNAL_H

#include <signal.h>

#include "os/os_thread.h"

// Blocks all signals for good, but those that report a fault of the thread itself (SIGSEGV and the like): a host's
// crash handler must still see these.
void os_signal_block_all();

// While the guard lives, no signal reaches the thread, and no request to cancel the thread ends it. A child or thread
// that is made meanwhile begins with all signals blocked.
class os_signal_all_guard {
 public:
  os_signal_all_guard();
  ~os_signal_all_guard();
  os_signal_all_guard(const os_signal_all_guard&) = delete;
  os_signal_all_guard& operator=(const os_signal_all_guard&) = delete;

 private:
  sigset_t m_previous;
  os_thread_cancel_guard m_uncancelled;
};

// For a child right before it executes a program. Makes system calls only.
// - SIGPIPE, and each signal that the parent handles, gets its default action. Other ignored signals stay ignored.
// - A pending stop from the terminal is dropped: it was meant for the parent's group.
// - Then no signal is blocked any more.
void os_signal_reset_for_exec();

// While the guard lives, a write of the thread to a pipe or socket without a reader fails with EPIPE and raises no
// SIGPIPE. The host's handlers are not touched; the guard's end restores the mask.
class os_signal_pipe_guard {
 public:
  os_signal_pipe_guard();
  ~os_signal_pipe_guard();
  os_signal_pipe_guard(const os_signal_pipe_guard&) = delete;
  os_signal_pipe_guard& operator=(const os_signal_pipe_guard&) = delete;

 private:
  sigset_t m_previous;
  bool m_was_pending;
};

#endif
