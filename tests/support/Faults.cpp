#include "tests/support/Faults.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdarg>

namespace faults {

namespace {

struct Plan {
  std::atomic<int> remaining{0};
  std::atomic<int> error{0};
  std::atomic<int> argument{kAnyArgument};
};

Plan plans[kCallCount];

bool fails(Call call, int argument = kAnyArgument) {
  Plan& plan = plans[call];
  if (plan.argument != kAnyArgument && plan.argument != argument) return false;
  int remaining = plan.remaining;
  while (remaining > 0 && !plan.remaining.compare_exchange_weak(remaining, remaining - 1)) {
  }
  if (remaining == 0) return false;
  errno = plan.error;
  return true;
}

}  // namespace

Fault::Fault(Call call, int error, int times, int argument) : m_call(call) {
  plans[call].error = error;
  plans[call].argument = argument;
  plans[call].remaining = times;
}

Fault::~Fault() { plans[m_call].remaining = 0; }

}  // namespace faults

// Under --wrap=NAME the linker takes NAME for __wrap_NAME, and __real_NAME for the function itself.
#define OXU_WRAP(call, result, name, parameters, arguments, argument)            \
  result __real_##name parameters;                                               \
  result __wrap_##name parameters {                                              \
    return faults::fails(faults::call, argument) ? -1 : __real_##name arguments; \
  }

extern "C" {
OXU_WRAP(kPipe, int, pipe, (int* fds), (fds), faults::kAnyArgument)
OXU_WRAP(kFork, pid_t, fork, (), (), faults::kAnyArgument)
OXU_WRAP(kDup2, int, dup2, (int from, int to), (from, to), to)
OXU_WRAP(kSetpgid, int, setpgid, (pid_t pid, pid_t group), (pid, group), pid)
OXU_WRAP(kExecvp, int, execvp, (const char* file, char* const* argv), (file, argv),
         faults::kAnyArgument)
OXU_WRAP(kSelect, int, select, (int n, fd_set* r, fd_set* w, fd_set* e, timeval* t),
         (n, r, w, e, t), faults::kAnyArgument)
OXU_WRAP(kRead, ssize_t, read, (int fd, void* data, size_t size), (fd, data, size),
         faults::kAnyArgument)
OXU_WRAP(kWrite, ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size),
         faults::kAnyArgument)
OXU_WRAP(kWaitpid, pid_t, waitpid, (pid_t pid, int* status, int flags), (pid, status, flags), pid)
OXU_WRAP(kStat, int, stat, (const char* path, struct stat* status), (path, status),
         faults::kAnyArgument)
OXU_WRAP(kSystem, int, system, (const char* line), (line), faults::kAnyArgument)

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
  if (faults::fails(faults::kFcntl, command)) return -1;
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return __real_fcntl(fd, command, argument);
}

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
  if (faults::fails(faults::kThread)) return errno;
  return __real_pthread_create(id, attributes, run, argument);
}
}
