#include "os/os_sharememory.h"
#include "os/os_socket_wait.h"
#include "os/os_thread.h"
#include "tests/support/Test.h"

namespace {

std::atomic<os_thread_handle> shared{0};

TEST(Thread, HandsItsResultToTheJoinAndCannotJoinItself) {
  const auto joinSelf = [](void* argument) -> void* {
    while (shared == 0) std::this_thread::yield();
    return os_thread_join(shared, nullptr) ? nullptr : argument;
  };
  os_thread_handle thread = 0;
  int argument = 0;
  ASSERT_TRUE(os_thread_create(&thread, joinSelf, &argument, 2, 0));
  shared = thread;
  void* result = nullptr;
  EXPECT_TRUE(os_thread_join(thread, &result));
  EXPECT_EQ(result, &argument);
  EXPECT_FALSE(os_thread_join(0, nullptr));

  const faults::Fault fault(faults::kThread, EAGAIN);
  EXPECT_FALSE(os_thread_create(&thread, joinSelf, nullptr, 0, 0));
  EXPECT_EQ(thread, shared);
}

std::atomic<int> destroyed{0};
struct CountsItsEnd {
  bool used = false;
  ~CountsItsEnd() { ++destroyed; }
};
thread_local CountsItsEnd local;

TEST(Thread, IsGoneWithItsThreadLocalObjectsWhenJoined) {
  for (int round = 1; round <= 500; ++round) {
    os_thread_handle threads[4];
    for (os_thread_handle& thread : threads) {
      ASSERT_TRUE(os_thread_create(
          &thread, [](void* p) { return local.used = true, p; }, nullptr, 0, 0));
    }
    for (const os_thread_handle thread : threads) EXPECT_TRUE(os_thread_join(thread, nullptr));
    ASSERT_EQ(destroyed, 4 * round);
  }
}

// A hundred default stacks are 800 MB of address space; the C library itself keeps a few for reuse.
TEST(Thread, KeepsNoStackBetweenItsEndAndItsJoin) {
  const auto addressSpace = [] {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * ::getpagesize();
  };
  const auto count = [](void*) -> void* { return ++shared, nullptr; };
  std::vector<os_thread_handle> threads(100);
  const long before = addressSpace();
  shared = 0;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    ASSERT_TRUE(os_thread_create(&threads[i], count, nullptr, 0, 0));
    ASSERT_TRUE(support::eventually([&] { return shared == i + 1; }));
  }
  EXPECT_LT(addressSpace() - before, 200L << 20);
  for (const os_thread_handle thread : threads) EXPECT_TRUE(os_thread_join(thread, nullptr));
}

TEST(Wait, LastsItsTimeWhileSignalsArriveAndNoLongerThanNeeded) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every{{0, 5000}, {0, 5000}}, off{};
  int ends[2], result = 7;
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  ::setitimer(ITIMER_REAL, &every, nullptr);
  const auto begin = std::chrono::steady_clock::now();
  os_thread_sleep_milliseconds(120, 0);
  const auto slept = std::chrono::steady_clock::now();
  EXPECT_TRUE(!os_socket_readable(ends[0], 120, &result, 0) && result == 0);
  EXPECT_GE(std::min(slept - begin, std::chrono::steady_clock::now() - slept), std::chrono::milliseconds(120));
  std::thread peer([&] { EXPECT_EQ(::write(ends[1], "x", 1), 1); });
  EXPECT_TRUE(os_socket_readable(ends[0], -1, &result, 0) && result == 1);
  peer.join();
  ::setitimer(ITIMER_REAL, &off, nullptr);
  EXPECT_TRUE(!os_socket_writable(1000000, 5000, &result, 0) && result == -1);
  for (const int end : ends) ::close(end);
}

TEST(ShareMemory, TheOwnerTakesTheNameAwayAndAnotherUserLeavesIt) {
  for (const int owner : {0, 1}) {
    auto* segment = new os_sharememory{nullptr, 4096, {}};
    std::snprintf(segment->name, sizeof segment->name, "/oxutool-test-%d", ::getpid());
    const int fd = ::shm_open(segment->name, O_CREAT | O_RDWR, 0600);
    segment->address = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0);
    ::close(fd);
    os_sharememory_close(segment, owner);
    EXPECT_EQ(::shm_unlink(segment->name), owner == 0 ? 0 : -1);
    os_sharememory_destroy(&segment);
    EXPECT_EQ(segment, nullptr);
  }
}

}  // namespace
