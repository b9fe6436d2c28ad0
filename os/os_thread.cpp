#include "os/os_thread.h"

#include <pthread.h>

#include <memory>
#include <new>

#include "os/os_clock.h"

namespace {

enum class State {
  kRunning,
  kClaimed,  // somebody is in os_thread_join, and joins it natively
  kEnded,    // its function has returned; it stands in lastEnded
  kReaping,  // its successor in lastEnded joins it natively
  kReaped,   // the native thread is gone
};

struct Thread {
  os_thread_function function;
  void* argument;
  void* result;
  pthread_t id;
  State state;  // guarded by mutex
};

// Invariant: of all threads that have ended and were not asked for by os_thread_join, only
// lastEnded is not joined natively yet. Each thread that ends takes its predecessor's place and
// joins it, so a host that leaves thousands of ended threads unjoined keeps one stack for them, not
// thousands.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t reaped = PTHREAD_COND_INITIALIZER;
Thread* lastEnded = nullptr;  // guarded by mutex

thread_local Thread* current = nullptr;

class Lock {
 public:
  Lock() { ::pthread_mutex_lock(&mutex); }
  ~Lock() { ::pthread_mutex_unlock(&mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// Puts an ended thread into lastEnded and returns the one that stood there, null if none; also null
// when the thread is being joined already and needs no successor.
Thread* replaceLastEnded(Thread* thread) {
  const Lock lock;
  if (thread->state != State::kRunning) return nullptr;
  Thread* predecessor = lastEnded;
  if (predecessor != nullptr) predecessor->state = State::kReaping;
  thread->state = State::kEnded;
  lastEnded = thread;
  return predecessor;
}

void reap(Thread* thread) {
  ::pthread_join(thread->id, nullptr);
  const Lock lock;
  thread->state = State::kReaped;
  ::pthread_cond_broadcast(&reaped);
}

void* run(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  current = thread;
  thread->result = thread->function(thread->argument);
  if (Thread* predecessor = replaceLastEnded(thread)) reap(predecessor);
  return nullptr;
}

// True when the caller has to join the thread natively, false when its successor has done so.
bool claim(Thread* thread) {
  const Lock lock;
  while (thread->state == State::kReaping) ::pthread_cond_wait(&reaped, &mutex);
  if (thread->state == State::kReaped) return false;
  if (lastEnded == thread) lastEnded = nullptr;
  thread->state = State::kClaimed;
  return true;
}

}  // namespace

bool os_thread_create(os_thread_handle* handle, os_thread_function function, void* argument, int /*priority*/,
                      int /*option*/) {
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{function, argument, nullptr, {}, State::kRunning});
  if (!thread || ::pthread_create(&thread->id, nullptr, run, thread.get()) != 0) return false;
  *handle = reinterpret_cast<os_thread_handle>(thread.release());
  return true;
}

bool os_thread_join(os_thread_handle handle, void** result) {
  auto* thread = reinterpret_cast<Thread*>(handle);
  if (thread == nullptr || thread == current) return false;
  if (claim(thread)) ::pthread_join(thread->id, nullptr);
  if (result != nullptr) *result = thread->result;
  delete thread;
  return true;
}

void os_thread_sleep_milliseconds(std::int64_t milliseconds, int /*option*/) {
  os_clock_time deadline{};
  if (!os_clock_get_time(kOsClockMonotonic, &deadline, kOsClockAbsolute)) return;
  deadline.seconds += milliseconds / 1000;
  deadline.nanoseconds += milliseconds % 1000 * 1000000;
  os_clock_adjust_clock_time(&deadline);
  os_clock_nano_sleep(&deadline, kOsClockAbsolute);
}
