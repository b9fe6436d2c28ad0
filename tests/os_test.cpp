#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <thread>
#include <vector>

#include "os/os_clock.h"
#include "os/os_mutex.h"
#include "os/os_sharememory.h"
#include "os/os_signal.h"
#include "os/os_thread.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

namespace {

TEST(Thread, HandsItsResultToTheJoin) {
  int argument = 0;
  os_thread_handle thread = 0;
  ASSERT_TRUE(os_thread_create(
      &thread, [](void* p) { return p; }, &argument, 2, 0));
  EXPECT_NE(thread, 0U);
  void* result = nullptr;
  EXPECT_TRUE(os_thread_join(thread, &result));
  EXPECT_EQ(result, &argument);
  EXPECT_FALSE(os_thread_join(0, nullptr));
}

TEST(Thread, CannotJoinItself) {
  std::atomic<os_thread_handle> handle{0};
  os_thread_handle thread = 0;
  const auto joinSelf = [](void* p) -> void* {
    auto& own = *static_cast<std::atomic<os_thread_handle>*>(p);
    while (own == 0) std::this_thread::yield();
    return os_thread_join(own, nullptr) ? p : nullptr;
  };
  ASSERT_TRUE(os_thread_create(&thread, joinSelf, &handle, 0, 0));
  handle = thread;
  void* result = &handle;
  EXPECT_TRUE(os_thread_join(thread, &result));
  EXPECT_EQ(result, nullptr);
}

TEST(Thread, LeavesTheHandleAloneWhenItCannotStart) {
  const faults::Fault fault(faults::kThread, EAGAIN);
  os_thread_handle thread = 42;
  EXPECT_FALSE(os_thread_create(
      &thread, [](void* p) { return p; }, nullptr, 0, 0));
  EXPECT_EQ(thread, 42U);
}

std::atomic<int> destroyed{0};
struct CountsItsEnd {
  bool used = false;
  ~CountsItsEnd() {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ++destroyed;
  }
};
thread_local CountsItsEnd local;

TEST(Thread, IsGoneWithItsThreadLocalObjectsWhenJoined) {
  for (int round = 0; round < 50; ++round) {
    std::vector<os_thread_handle> threads(4);
    for (os_thread_handle& thread : threads) {
      ASSERT_TRUE(os_thread_create(
          &thread,
          [](void* p) {
            local.used = true;
            return p;
          },
          nullptr, 0, 0));
    }
    for (const os_thread_handle thread : threads) EXPECT_TRUE(os_thread_join(thread, nullptr));
    ASSERT_EQ(destroyed, 4 * (round + 1));
  }
}

long addressSpaceInPages() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages;
}

// A hundred default stacks are 800 MB of address space; the C library itself keeps a few for reuse.
TEST(Thread, KeepsNoStackBetweenItsEndAndItsJoin) {
  std::vector<os_thread_handle> threads(100);
  std::atomic<int> ended{0};
  const long before = addressSpaceInPages();
  for (os_thread_handle& thread : threads) {
    const auto count = [](void* p) { return ++*static_cast<std::atomic<int>*>(p), p; };
    const int target = ended + 1;
    ASSERT_TRUE(os_thread_create(&thread, count, &ended, 0, 0));
    ASSERT_TRUE(support::eventually([&] { return ended == target; }));
  }
  EXPECT_LT(addressSpaceInPages() - before, (200L << 20) / ::getpagesize());
  for (const os_thread_handle thread : threads) EXPECT_TRUE(os_thread_join(thread, nullptr));
}

TEST(Thread, AtomicOperationsReturnTheValueAfterTheChange) {
  std::uint64_t word = 1;
  EXPECT_EQ(os_thread_sync_fetch_add(&word), 2U);
  EXPECT_EQ(os_thread_sync_fetch_sub(&word), 1U);
  EXPECT_EQ(os_thread_sync_fetch_sub(&word), 0U);
  EXPECT_FALSE(os_thread_sync_compare_and_swap(&word, 1, 5));
  EXPECT_TRUE(os_thread_sync_compare_and_swap(&word, 0, 5));
  EXPECT_EQ(os_thread_sync_load(&word), 5U);
}

TEST(Clock, SleepsItsWholeTimeWhileSignalsArrive) {
  struct sigaction action {};
  static std::atomic<int> signals{0};
  action.sa_handler = [](int) { ++signals; };
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every{{0, 5000}, {0, 5000}};
  ::setitimer(ITIMER_REAL, &every, nullptr);
  const auto begin = std::chrono::steady_clock::now();
  os_thread_sleep_milliseconds(120, 0);
  const auto slept = std::chrono::steady_clock::now() - begin;
  const itimerval off{};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  EXPECT_GE(slept, std::chrono::milliseconds(120));
  EXPECT_GT(signals, 0);
}

TEST(Clock, CarriesWholeSecondsOutOfTheNanoseconds) {
  const struct {
    os_clock_time in, out;
  } rows[] = {{{1, 0}, {1, 0}},          {{1, 999999999}, {1, 999999999}},
              {{1, 1000000000}, {2, 0}}, {{1, 3500000000}, {4, 500000000}},
              {{1, -1}, {0, 999999999}}, {{1, -2000000000}, {-1, 0}}};
  for (const auto& row : rows) {
    os_clock_time time = row.in;
    os_clock_adjust_clock_time(&time);
    EXPECT_EQ(time.seconds, row.out.seconds) << row.in.nanoseconds;
    EXPECT_EQ(time.nanoseconds, row.out.nanoseconds) << row.in.nanoseconds;
  }
  const os_clock_time invalid{0, -1};
  EXPECT_FALSE(os_clock_nano_sleep(&invalid, 1));
}

TEST(Mutex, IsRecursiveAndKeepsOtherThreadsOut) {
  os_mutex_handle mutex = os_mutex_create(1, 2, 0);
  ASSERT_NE(mutex, 0U);
  EXPECT_TRUE(os_mutex_lock(mutex));
  EXPECT_TRUE(os_mutex_lock(mutex));
  std::atomic<bool> entered{false};
  std::thread other([&] {
    os_mutex_lock(mutex);
    entered = true;
    os_mutex_unlock(mutex);
  });
  EXPECT_TRUE(os_mutex_unlock(mutex));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(entered);
  EXPECT_TRUE(os_mutex_unlock(mutex));
  other.join();
  os_mutex_destroy(&mutex);
  EXPECT_EQ(mutex, 0U);
  os_mutex_destroy(&mutex);
  EXPECT_FALSE(os_mutex_lock(mutex));
  EXPECT_FALSE(os_mutex_unlock(mutex));
}

TEST(ShareMemory, TheOwnerTakesTheNameAwayAndAnotherUserLeavesIt) {
  for (const int owner : {0, 1}) {
    auto* segment = new os_sharememory{nullptr, 4096, {}};
    std::snprintf(segment->name, sizeof segment->name, "/oxutool-test-%d", ::getpid());
    const int fd = ::shm_open(segment->name, O_CREAT | O_RDWR, 0600);
    ASSERT_NE(fd, -1);
    ASSERT_EQ(::ftruncate(fd, 4096), 0);
    segment->address = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
    ::close(fd);
    os_sharememory_close(segment, owner);
    EXPECT_EQ(segment->address, nullptr);
    EXPECT_EQ(::shm_unlink(segment->name), owner == 0 ? 0 : -1);
    os_sharememory_destroy(&segment);
    EXPECT_EQ(segment, nullptr);
  }
}

TEST(SignalPipeGuard, TurnsABrokenPipeIntoAnErrorAndLeavesTheHostsSignalPending) {
  const int status = support::statusOfChild([] {
    int fds[2];
    if (::pipe(fds) != 0) return false;
    ::close(fds[0]);
    {
      const os_signal_pipe_guard guard;
      if (::write(fds[1], "x", 1) != -1 || errno != EPIPE) return false;
    }
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    ::raise(SIGPIPE);
    { const os_signal_pipe_guard guard; }
    ::sigpending(&set);
    return sigismember(&set, SIGPIPE) == 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
