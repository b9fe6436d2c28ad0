#include "os/os_signal.h"

#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <initializer_list>

namespace {

sigset_t pipeSignal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool isPipeSignalPending() {
  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

bool isTerminalStop(int signal) { return signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU; }

void setAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

void os_signal_block_all() {
  sigset_t set;
  sigfillset(&set);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    sigdelset(&set, fault);
  }
  ::pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

os_signal_all_guard::os_signal_all_guard() : m_previous() {
  sigset_t set;
  sigfillset(&set);
  ::pthread_sigmask(SIG_SETMASK, &set, &m_previous);
}

os_signal_all_guard::~os_signal_all_guard() {
  const int error = errno;
  ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
  errno = error;
}

void os_signal_reset_for_exec() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    // Fails for the signals that the C library keeps to itself.
    if (::sigaction(signal, nullptr, &action) == -1) continue;
    if (action.sa_handler == SIG_IGN && signal != SIGPIPE) continue;
    // Ignoring a signal drops a pending one. A child that stopped here would stop its parent, which waits in vfork.
    if (isTerminalStop(signal)) setAction(signal, SIG_IGN);
    if (action.sa_handler != SIG_DFL || isTerminalStop(signal)) setAction(signal, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

os_signal_pipe_guard::os_signal_pipe_guard() : m_previous(), m_was_pending(isPipeSignalPending()) {
  const sigset_t set = pipeSignal();
  ::pthread_sigmask(SIG_BLOCK, &set, &m_previous);
}

os_signal_pipe_guard::~os_signal_pipe_guard() {
  const int error = errno;
  // A SIGPIPE that was pending before is the host's. A later one comes from this thread's write, and is taken before
  // the old mask would let it through.
  if (!m_was_pending && isPipeSignalPending()) {
    const sigset_t set = pipeSignal();
    const timespec noWait{};
    while (::sigtimedwait(&set, nullptr, &noWait) == -1 && errno == EINTR) {
    }
  }
  ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
  errno = error;
}
