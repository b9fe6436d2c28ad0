// Makes system calls of the library fail, in this process and in children that it forks meanwhile.
#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

namespace faults {

constexpr int kEveryTime = -1;
constexpr int kAnyArgument = -1;

// The calls that the test program's linker routes through this file.
enum Call {
  kPipe,
  kFork,
  kFcntl,
  kDup2,
  kPgid,
  kExec,
  kSelect,
  kRead,
  kWrite,
  kStat,
  kSystem,
  kThread,
  kBind,
  kConnect,
  kAccept
};

// While it lives, `call` fails with `error`, `times` times. `argument` limits the fault to one fcntl command or one
// dup2 target. Only one Fault may live at a time.
class Fault {
 public:
  Fault(Call call, int error, int times = kEveryTime, int argument = kAnyArgument);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;
};

// While it lives, each launched child waits before its first step.
class HeldChildren {
 public:
  HeldChildren();
  ~HeldChildren();
  HeldChildren(const HeldChildren&) = delete;
  HeldChildren& operator=(const HeldChildren&) = delete;
};

}  // namespace faults

#endif
