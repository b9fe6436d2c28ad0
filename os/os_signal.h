// Signal masks of the portability library.
#ifndef OS_SIGNAL_H
#define OS_SIGNAL_H

#include <signal.h>

#include "os/os_thread.h"

// Blocks every signal for the calling thread, for good, but those that report a fault of its own
// (SIGSEGV and the like), which a host's crash handler must still see.
void os_signal_block_all();

// While it lives, no signal reaches the calling thread, and no request to cancel the thread ends it. A child or thread
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

// For a child right before it executes a program: signals that the parent handles get their default action, and so does
// an ignored SIGPIPE; other ignored signals stay ignored. A stop from the terminal that still waits, which the parent's
// group was meant to get, is dropped. Then nothing is blocked any more. Makes system calls only.
void os_signal_reset_for_exec();

// While it lives, a write of this thread to a pipe or socket without a reader fails with EPIPE and
// raises no SIGPIPE. The host's handlers and the mask of before are left as they were.
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
