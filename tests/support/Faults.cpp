#include "tests/support/Faults.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>

namespace faults {

namespace {

struct Plan {
  std::atomic<int> remaining{0}, call{0}, error{0}, argument{0};
} plan;

int gate[2] = {-1, -1};

// Whether a fault is left to be taken; takes it.
bool takeOne() {
  int remaining = plan.remaining;
  while (remaining > 0 && !plan.remaining.compare_exchange_weak(remaining, remaining - 1)) continue;
  return remaining > 0;
}

bool fails(Call call, int argument) {
  if (plan.call != call || (plan.argument != kAnyArgument && plan.argument != argument)) return false;
  if (plan.remaining != kEveryTime && !takeOne()) return false;
  errno = plan.error;
  return true;
}

}  // namespace

Fault::Fault(Call call, int error, int times, int argument) {
  plan.call = call;
  plan.error = error;
  plan.argument = argument;
  plan.remaining = times;
}

Fault::~Fault() { plan.remaining = 0; }

HeldChildren::HeldChildren() {
  if (::pipe2(gate, O_CLOEXEC) != 0) std::abort();
}

HeldChildren::~HeldChildren() {
  ::close(gate[1]);
  ::close(gate[0]);
  gate[0] = -1;
}

}  // namespace faults

// With --wrap=NAME, calls of NAME go to __wrap_NAME, and __real_NAME is the function itself.
#define WRAP(call, argument, failure, result, name, parameters, arguments) \
  result __real_##name parameters;                                         \
  result __wrap_##name parameters { return faults::fails(faults::call, argument) ? failure : __real_##name arguments; }

extern "C" {
using Run = void* (*)(void*);
WRAP(kPipe, 0, -1, int, pipe, (int* fds), (fds))
WRAP(kDup2, to, -1, int, dup2, (int from, int to), (from, to))
WRAP(kPgid, 0, -1, int, setpgid, (pid_t pid, pid_t group), (pid, group))
WRAP(kExec, 0, -1, int, execve, (const char* file, char* const* argv, char* const* env), (file, argv, env))
WRAP(kSelect, 0, -1, int, select, (int n, fd_set* r, fd_set* w, fd_set* e, timeval* t), (n, r, w, e, t))
WRAP(kRead, 0, -1, ssize_t, read, (int fd, void* data, size_t size), (fd, data, size))
WRAP(kWrite, 0, -1, ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size))
WRAP(kStat, 0, -1, int, stat, (const char* path, struct stat* status), (path, status))
WRAP(kSystem, 0, -1, int, system, (const char* line), (line))
WRAP(kBind, 0, -1, int, bind, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
WRAP(kConnect, 0, -1, int, connect, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
WRAP(kAccept, 0, -1, int, accept4, (int fd, sockaddr* address, socklen_t* size, int flags), (fd, address, size, flags))
WRAP(kThread, 0, errno, int, pthread_create, (pthread_t * id, const pthread_attr_t* how, Run run, void* argument),
     (id, how, run, argument))

// A wrapper must not return in a child of vfork, so it forks.
pid_t __wrap_vfork() {
  if (faults::fails(faults::kFork, 0)) return -1;
  const pid_t pid = ::fork();
  if (pid == 0 && faults::gate[0] != -1) {
    char byte;
    ::close(faults::gate[1]);
    (void)!__real_read(faults::gate[0], &byte, 1);  // "!": the result may not be ignored otherwise
  }
  return pid;
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return faults::fails(faults::kFcntl, command) ? -1 : __real_fcntl(fd, command, argument);
}
}
