#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "os/os_socket_wait.h"
#include "os/os_thread.h"
#include "tests/support/Faults.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::atomic<os_thread_handle> own{0};

TEST(Thread, HandsItsResultToTheJoinAndCannotJoinItself) {
  own = 0;
  const auto joinSelf = [](void* argument) {
    while (own == 0) std::this_thread::yield();
    EXPECT_FALSE(os_thread_join(own, nullptr));
    return argument;
  };
  os_thread_handle thread = 0;
  int argument = 0;
  ASSERT_TRUE(os_thread_create(&thread, joinSelf, &argument, /*priority=*/2, /*option=*/0));
  own = thread;
  void* result = nullptr;
  EXPECT_TRUE(os_thread_join(thread, &result));
  EXPECT_EQ(result, &argument);
  EXPECT_FALSE(os_thread_join(0, nullptr));

  const faults::Fault fault(faults::kThread, EAGAIN);
  EXPECT_FALSE(os_thread_create(&thread, joinSelf, nullptr, 0, 0));
  EXPECT_EQ(thread, own);
}

std::atomic<int> destroyed{0};
struct CountsItsEnd {
  void use() {}
  ~CountsItsEnd() { ++destroyed; }
};
thread_local CountsItsEnd local;

TEST(Thread, JoinReturnsAfterThreadLocalObjectsAreDestroyed) {
  destroyed = 0;
  const auto useLocal = [](void* argument) {
    local.use();
    return argument;
  };
  // Many rounds: only a race can show the fault.
  for (int round = 1; round <= 500; ++round) {
    os_thread_handle threads[4];
    for (os_thread_handle& thread : threads) ASSERT_TRUE(os_thread_create(&thread, useLocal, nullptr, 0, 0));
    for (const os_thread_handle thread : threads) EXPECT_TRUE(os_thread_join(thread, nullptr));
    ASSERT_EQ(destroyed, 4 * round);
  }
}

TEST(Wait, LastsItsTimeWhileSignalsArrive) {
  std::signal(SIGALRM, [](int) {});
  const itimerval every{{0, 5000}, {0, 5000}}, off{};
  int ends[2], result = 7;
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  ::setitimer(ITIMER_REAL, &every, nullptr);
  auto begin = Clock::now();
  os_thread_sleep_milliseconds(120, 0);
  EXPECT_GE(Clock::now() - begin, milliseconds(120));
  begin = Clock::now();
  EXPECT_FALSE(os_socket_readable(ends[0], 120, &result, 0));
  EXPECT_GE(Clock::now() - begin, milliseconds(120));
  EXPECT_EQ(result, 0);
  std::thread peer([&] {
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(::write(ends[1], "x", 1), 1);
  });
  EXPECT_TRUE(os_socket_readable(ends[0], -1, &result, 0));
  EXPECT_EQ(result, 1);
  peer.join();
  ::setitimer(ITIMER_REAL, &off, nullptr);
  std::signal(SIGALRM, SIG_DFL);
  EXPECT_FALSE(os_socket_writable(1000000, 5000, &result, 0));
  EXPECT_EQ(result, -1);
  for (const int end : ends) ::close(end);
}

}  // namespace
