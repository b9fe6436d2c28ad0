#include "os/os_thread.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <memory>
#include <new>

#include "os/os_clock.h"

namespace {

constexpr std::size_t kLeastStackBytes = 256UL * 1024;

enum class State {
  kRunning,
  kEnded,    // the function has returned, and the thread is in the list of ended ones
  kClaimed,  // os_thread_join joins the native thread
  kReaped,   // the native thread is joined, and its stack is gone
};

struct Thread {
  os_thread_function function;
  void* argument;
  void* result;
  pthread_t id;  // the mutex guards this member and the next two
  State state;
  Thread* next;
};

// A native thread holds its stack until it is joined, and a host may leave thousands of ended threads unjoined. So each
// thread that starts or ends joins the native threads of this list that are gone by then; it waits for none. Only
// threads on their last few instructions stay in the list.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
Thread* ended = nullptr;

thread_local Thread* current = nullptr;

class Lock {
 public:
  Lock() { ::pthread_mutex_lock(&mutex); }
  ~Lock() { ::pthread_mutex_unlock(&mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// The caller holds the mutex.
void reapEnded() {
  for (Thread** at = &ended; *at != nullptr;) {
    Thread* thread = *at;
    if (::pthread_tryjoin_np(thread->id, nullptr) == EBUSY) {
      at = &thread->next;
      continue;
    }
    *at = thread->next;
    thread->state = State::kReaped;
  }
}

// Puts the thread into the list when its function returns or leaves by pthread_exit.
class EndOfThread {
 public:
  explicit EndOfThread(Thread* thread) : m_thread(thread) {}
  ~EndOfThread() {
    const Lock lock;
    reapEnded();
    if (m_thread->state != State::kRunning) return;
    m_thread->state = State::kEnded;
    m_thread->id = ::pthread_self();
    m_thread->next = ended;
    ended = m_thread;
  }
  EndOfThread(const EndOfThread&) = delete;
  EndOfThread& operator=(const EndOfThread&) = delete;

 private:
  Thread* m_thread;
};

void* run(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  const EndOfThread end(thread);
  current = thread;
  thread->result = thread->function(thread->argument);
  return nullptr;
}

// A host may have set a default stack that is too small for what the library's threads keep there.
bool startNative(pthread_t* id, Thread* thread) {
  pthread_attr_t attributes;
  if (::pthread_attr_init(&attributes) != 0) return false;
  std::size_t stackBytes = 0;
  ::pthread_attr_getstacksize(&attributes, &stackBytes);
  if (stackBytes < kLeastStackBytes) ::pthread_attr_setstacksize(&attributes, kLeastStackBytes);
  const bool isStarted = ::pthread_create(id, &attributes, run, thread) == 0;
  ::pthread_attr_destroy(&attributes);
  return isStarted;
}

// True when the caller has to join the native thread, false when that is done.
bool claim(Thread* thread) {
  const Lock lock;
  if (thread->state == State::kReaped) return false;
  for (Thread** at = &ended; *at != nullptr; at = &(*at)->next) {
    if (*at != thread) continue;
    *at = thread->next;
    break;
  }
  thread->state = State::kClaimed;
  return true;
}

}  // namespace

bool os_thread_create(os_thread_handle* handle, os_thread_function function, void* argument, int /*priority*/,
                      int /*option*/) {
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{function, argument, nullptr, {}, State::kRunning, nullptr});
  pthread_t id{};
  if (!thread || !startNative(&id, thread.get())) return false;
  const Lock lock;
  reapEnded();
  thread->id = id;
  *handle = reinterpret_cast<os_thread_handle>(thread.release());
  return true;
}

os_thread_cancel_guard::os_thread_cancel_guard() : m_previous(PTHREAD_CANCEL_ENABLE) {
  ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_previous);
}

os_thread_cancel_guard::~os_thread_cancel_guard() { ::pthread_setcancelstate(m_previous, nullptr); }

bool os_thread_join(os_thread_handle handle, void** result) {
  const os_thread_cancel_guard uncancelled;
  auto* thread = reinterpret_cast<Thread*>(handle);
  if (thread == nullptr || thread == current) return false;
  if (claim(thread) && ::pthread_join(thread->id, nullptr) != 0) return false;
  if (result != nullptr) *result = thread->result;
  delete thread;
  return true;
}

void os_thread_yield() { ::sched_yield(); }

void os_thread_sleep_milliseconds(std::int64_t milliseconds, int /*option*/) {
  os_clock_time deadline{};
  if (!os_clock_get_time(kOsClockMonotonic, &deadline, kOsClockAbsolute)) return;
  deadline.seconds += milliseconds / 1000;
  deadline.nanoseconds += milliseconds % 1000 * kNanosecondsPerMs;
  os_clock_adjust_clock_time(&deadline);
  os_clock_nano_sleep(&deadline, kOsClockAbsolute);
}
