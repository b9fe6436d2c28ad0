// Threads and atomic operations of the portability library. Every function may be called from any thread.
#ifndef OS_THREAD_H
#define OS_THREAD_H

#include <cstddef>
#include <cstdint>

using os_thread_handle = std::uint64_t;  // 0 stands for no thread
using os_thread_function = void* (*)(void*);

// Starts a joinable thread that runs function(argument), and stores its handle. False, with the handle left as it was,
// when no thread can be started. Priority and option are accepted and ignored.
//
// The caller joins every handle exactly once. Until then a thread that has ended costs a small record; its stack goes
// when the next thread starts or ends.
bool os_thread_create(os_thread_handle* handle, os_thread_function function, void* argument, int priority, int option);

// Waits until the thread has ended and its thread-local objects are destroyed, and releases the handle. Where `result`
// is not null, stores there what the thread's function returned. False at once for a thread that joins itself, and for
// handle 0. A request to cancel the caller does not end the wait.
bool os_thread_join(os_thread_handle handle, void** result);

// Sleeps for `milliseconds`, whatever signals arrive meanwhile.
void os_thread_sleep_milliseconds(std::int64_t milliseconds, int option);

// While the guard lives, a request to cancel the calling thread waits, so that nothing is left half done.
class os_thread_cancel_guard {
 public:
  os_thread_cancel_guard();
  ~os_thread_cancel_guard();
  os_thread_cancel_guard(const os_thread_cancel_guard&) = delete;
  os_thread_cancel_guard& operator=(const os_thread_cancel_guard&) = delete;

 private:
  int m_previous;
};

// Gives the processor to another thread that waits for one.
void os_thread_yield();

// Tells the processor that the thread waits in a loop for another thread.
inline void os_thread_relax() { __builtin_ia32_pause(); }

// Tells the processor that the calling thread is about to write this memory, so that it fetches the memory meanwhile.
// Changes nothing but the time that the writes take.
inline void os_thread_prepare_write(const char* memory, std::size_t size) {
  constexpr std::size_t kCacheLine = 64;
  for (std::size_t at = 0; at < size; at += kCacheLine) __asm__ volatile("prefetchw %0" : : "m"(memory[at]));
}

// Atomic operations on 64-bit words; all of them are sequentially consistent.

inline bool os_thread_sync_compare_and_swap(std::uint64_t* word, std::uint64_t expected, std::uint64_t desired) {
  return __atomic_compare_exchange_n(word, &expected, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

// Both return the value after the change.
inline std::uint64_t os_thread_sync_fetch_add(std::uint64_t* word) {
  return __atomic_add_fetch(word, 1, __ATOMIC_SEQ_CST);
}

inline std::uint64_t os_thread_sync_fetch_sub(std::uint64_t* word) {
  return __atomic_sub_fetch(word, 1, __ATOMIC_SEQ_CST);
}

// Reads a word that other threads change. Compiles to an ordinary load.
inline std::uint64_t os_thread_sync_load(const std::uint64_t* word) { return __atomic_load_n(word, __ATOMIC_SEQ_CST); }

#endif
