#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "log/OxuLog.h"
#include "oxu/CApi.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"

namespace {

using oxu::LogItem;
using Ring = CRingBuffer<LogItem>;
using std::chrono::milliseconds;

LogItem itemWith(std::int64_t seconds) {
  LogItem item;
  item.seconds = seconds;
  return item;
}

TEST(RingBuffer, HoldsOneLessThanTheRequestRoundedDownToAPowerOfTwo) {
  const struct {
    std::uint64_t requested;
    std::int64_t capacity;
  } rows[] = {{0, 128}, {1, 128}, {2, 2}, {3, 2}, {127, 64}, {200, 128}, {1024, 1024}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.requested);
    Ring ring(row.requested);
    LogItem item;
    EXPECT_FALSE(ring.pop(item));
    for (std::int64_t i = 1; i < row.capacity; ++i) ASSERT_TRUE(ring.push(itemWith(i)));
    for (std::int64_t i = 1; i < 3 * row.capacity; ++i) {
      EXPECT_FALSE(ring.push(itemWith(-1)));
      ASSERT_TRUE(ring.pop(item));
      EXPECT_EQ(item.seconds, i);
      ASSERT_TRUE(ring.push(itemWith(row.capacity - 1 + i)));
    }
    EXPECT_EQ(ring.header()->count, static_cast<std::uint64_t>(row.capacity - 1));
  }
  EXPECT_FALSE(Ring(std::uint64_t{1} << 52).push(itemWith(0))) << "that much memory cannot be allocated";
}

// There are never more pushes under way than free slots, so every refusal is a fault. The records carry producer,
// sequence number and a fill byte made of both, so that loss, tearing and reordering show.
TEST(RingBuffer, NeverRefusesARecordWithRoomInTheRing) {
  constexpr std::int64_t kRecords = 10000;
  Ring ring(8);
  std::atomic<int> room{7}, refused{0};
  std::vector<std::thread> producers;
  const auto fillOf = [](const LogItem& item) { return static_cast<char>((item.seconds + item.milliseconds) % 251); };
  for (int producer = 0; producer < 8; ++producer) {
    producers.emplace_back([&, producer] {
      for (LogItem item = itemWith(0); item.seconds < kRecords; ++item.seconds) {
        for (; room.fetch_sub(1) <= 0; std::this_thread::yield()) ++room;
        item.milliseconds = producer;
        std::memset(item.text, fillOf(item), sizeof item.text);
        while (!ring.push(item)) ++refused;
      }
    });
  }
  std::int64_t next[8] = {};
  LogItem item;
  for (std::int64_t taken = 0; taken < 8 * kRecords; ++taken) {
    while (!ring.pop(item)) std::this_thread::yield();
    ++room;
    ASSERT_EQ(item.seconds, next[item.milliseconds]++);
    ASSERT_EQ(std::string(item.text, sizeof item.text), std::string(sizeof item.text, fillOf(item)));
  }
  for (std::thread& producer : producers) producer.join();
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(ring.header()->count, 0U);
}

TEST(Logger, PrintsTagLocalTimeAndTextOfEachLevelAndColorsThemAtFirst) {
  ::setenv("TZ", "<+0545>-05:45", 1);
  const struct {
    int level;
    std::int64_t seconds, milliseconds;
    const char *text, *line;
  } rows[] = {
      {-1, INT64_MIN, 0, "early", " [1900-01-00 00:00:00.000]  early\x1b[0m\n"},
      {0, 1706688309, 42, "a", "\x1b[34mTEST [2024-01-31 13:50:09.042]  a\x1b[0m\n"},
      {1, 1706688309, 5, "", "\x1b[32mDEBUG [2024-01-31 13:50:09.005]  \x1b[0m\n"},
      {2, 0, 999, "two\nlines", "\x1b[0mINFO [1970-01-01 05:45:00.999]  two\nlines\x1b[0m\n"},
      {3, -30641762700, 0, "%s", "\x1b[33mWARNING [0999-01-01 05:00:00.000]  %s\x1b[0m\n"},
      {4, 1706688310, 0, "e", "\x1b[31mERROR [2024-01-31 13:50:10.000]  e\x1b[0m\n"},
      {7, 1706688310, 1, "seven", " [2024-01-31 13:50:10.001]  seven\x1b[0m\n"},
  };
  const support::DescriptorCapture output(STDOUT_FILENO);
  set_log_colors(false);  // without a logger it does nothing
  install_log_task();
  std::string expected;
  for (const auto& row : rows) {
    LogItem item = itemWith(row.seconds);
    item.level = static_cast<oxu::LogLevel>(row.level);
    item.milliseconds = row.milliseconds;
    std::snprintf(item.text, sizeof item.text, "%s", row.text);
    ASSERT_TRUE(oxu::CLog::getUniqueLog()->pushLogItem(item));
    expected += row.line;
  }
  EXPECT_TRUE(flush_log(-1));
  EXPECT_EQ(output.text(), expected);
  uninstall_log_task();
}

TEST(Logger, LeavesColorsOutOfTheRecordsThatFollowTheRequest) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  install_log_task();
  set_log_colors(false);
  push_log(7, "of no level");
  EXPECT_TRUE(flush_log(-1));
  set_log_colors(true);
  push_log(oxu::INFO, "colored");
  EXPECT_TRUE(flush_log(-1));
  uninstall_log_task();
  EXPECT_EQ(support::withoutStamps(output.text()), " of no level\n\x1b[0mINFO colored\x1b[0m\n");
}

TEST(Logger, PrintsBehindWhatTheHostHasPrinted) {
  support::LogCapture log;
  std::printf("the host's own text, ");
  push_log(oxu::INFO, "a record");
  EXPECT_EQ(log.messages(), "the host's own text, INFO a record\n");
}

ssize_t appendTo(void* text, const char* data, std::size_t size) {
  static_cast<support::SharedText*>(text)->append(std::string(data, size));
  return static_cast<ssize_t>(size);
}

TEST(Logger, PrintsIntoAStreamWithoutADescriptor) {
  support::inChild([] {
    support::SharedText text;
    stdout = ::fopencookie(&text, "w", {nullptr, appendTo, nullptr, nullptr});
    install_log_task();
    push_log(oxu::INFO, "into memory");
    EXPECT_TRUE(text.eventuallyContains("  into memory\x1b[0m\n"));
    uninstall_log_task();
  });
}

TEST(Logger, EndsWhileANonBlockingConsoleIsFull) {
  support::inChildWithPipe([](int) {
    support::fillStandardOutput();
    ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
    install_log_task();
    EXPECT_TRUE(push_log(oxu::INFO, "waits for room"));
    EXPECT_FALSE(flush_log(100));
    uninstall_log_task();
  });
}

// Reads that many lines, slowly, so that the logger finds the pipe full.
std::string readLines(int fd, int count) {
  std::string text;
  for (char buffer[1500]; support::countOf("\n", text) < count; ::usleep(1000)) {
    const ssize_t size = ::read(fd, buffer, sizeof buffer);
    if (size > 0) text.append(buffer, static_cast<std::size_t>(size));
  }
  return text;
}

// The first record waits for the console, so the second one is printed more than a second after its push.
TEST(Logger, StampsARecordWithTheTimeOfItsPush) {
  support::inChildWithPipe([](int readEnd) {
    ::setenv("TZ", "UTC", 1);
    support::fillStandardOutput();
    install_log_task();
    const std::time_t before = std::time(nullptr);
    push_log(oxu::INFO, "first");
    push_log(oxu::INFO, "second");
    const std::time_t after = std::time(nullptr);
    std::this_thread::sleep_for(milliseconds(1100));
    const std::string text = readLines(readEnd, 2);
    std::tm stamp{};
    ASSERT_NE(::strptime(text.c_str() + text.rfind("[20"), "[%Y-%m-%d %H:%M:%S", &stamp), nullptr);
    EXPECT_GE(::timegm(&stamp), before);
    EXPECT_LE(::timegm(&stamp), after);
  });
}

// Without SA_RESTART, a handler on the printing thread would cut a waiting write short. A redirection, or another
// process that shares the console, may make it non-blocking at any moment: then it refuses lines.
TEST(Logger, PrintsEachRecordOnceWholeAndInOrderUnderSignalsAndOnANonBlockingConsole) {
  support::inChildWithPipe([](int readEnd) {
    constexpr int kProducers = 4, kRecords = 500;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, nullptr);
    install_log_task();
    // From now on only the logger's thread could take the signal.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    std::atomic<bool> isRead{false};
    std::thread signals([&isRead] {
      for (; !isRead; ::usleep(500)) ::kill(::getpid(), SIGUSR1);
    });
    const std::string line = "# # " + std::string(200, 'f');
    std::vector<std::thread> producers;
    for (int producer = 0; producer < kProducers; ++producer) {
      producers.emplace_back([&line, producer] {
        for (int i = 0; i < kRecords; ++i) {
          push_log_wait(-1, oxu::INFO, "%s", support::filled(line, {producer, i}).c_str());
          if (i == kRecords / 2) ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        }
      });
    }
    const std::string printed = readLines(readEnd, kProducers * kRecords);
    isRead = true;
    signals.join();
    for (std::thread& producer : producers) producer.join();
    for (int producer = 0; producer < kProducers; ++producer) {
      std::size_t at = 0;
      for (int i = 0; i < kRecords; ++i) {
        at = printed.find("]  " + support::filled(line, {producer, i}) + "\x1b[0m\n", at);
        ASSERT_NE(at, std::string::npos) << i << " of " << producer;
      }
    }
  });
}

TEST(PushLog, RefusesMessagesThatAreTooLongOrCannotBeFormatted) {
  support::LogCapture log;
  EXPECT_TRUE(push_log(oxu::WARNING, "%s", ""));
  EXPECT_TRUE(push_log(oxu::WARNING, "%s", std::string(1022, 'x').c_str()));
  for (const std::size_t length : {1023U, 1024U, 100000U}) {
    EXPECT_FALSE(push_log(oxu::INFO, "%s", std::string(length, 'x').c_str())) << length;
  }
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffffff), 0};
  EXPECT_FALSE(push_log(oxu::INFO, "%ls", invalid));
  EXPECT_EQ(log.messages(), "WARNING \nWARNING " + std::string(1022, 'x') + "\n");
}

TEST(PushLog, ExistsOnlyBetweenInstallAndUninstallAndIsNotFilteredByLevel) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  for (const char* text : {"first", "second"}) {
    EXPECT_FALSE(push_log(oxu::ERROR, "not installed"));
    set_log_level(4);
    EXPECT_EQ(get_log_level(), 2);
    install_log_task();
    EXPECT_EQ(get_log_level(), 2);
    set_log_level(-77);
    install_log_task();
    EXPECT_EQ(get_log_level(), -77);
    set_log_level(4);
    EXPECT_TRUE(push_log(oxu::DEBUG, "%s", text));
    EXPECT_TRUE(output.eventuallyContains(text));
    uninstall_log_task();
    uninstall_log_task();
  }
}

TEST(PushLog, LosesTheRecordsThatWaitAtTheUninstall) {
  support::inChildWithPipe([](int readEnd) {
    support::fillStandardOutput();
    install_log_task();
    // One record is being printed, and 127 fill the ring.
    for (int i = 0; i < 128; ++i) EXPECT_TRUE(push_log_wait(10000, oxu::INFO, "record"));
    std::thread reader([readEnd] {
      ::usleep(100000);
      EXPECT_EQ(support::countOf("record", readLines(readEnd, 1)), 1) << "the one that is being printed";
    });
    uninstall_log_task();
    reader.join();
    int unread = -1;
    EXPECT_EQ(::ioctl(readEnd, FIONREAD, &unread), 0);
    EXPECT_EQ(unread, 0);
  });
}

TEST(PushLogWait, WaitsUpToItsTimeForRoomAndCountsRefusals) {
  support::inChildWithPipe([](int readEnd) {
    EXPECT_FALSE(push_log_wait(-1, oxu::INFO, "no logger"));
    EXPECT_EQ(get_refused_log_count(), 0U);
    // One record is being printed, and 127 fill the ring.
    support::fillStandardOutput();
    install_log_task();
    for (int i = 0; i < 128; ++i) EXPECT_TRUE(push_log_wait(10000, oxu::INFO, "record %d", i));
    EXPECT_FALSE(push_log(oxu::INFO, "full"));
    EXPECT_FALSE(push_log_wait(0, oxu::INFO, "full"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(push_log_wait(50, oxu::INFO, "full"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
    EXPECT_EQ(get_refused_log_count(), 3U);
    EXPECT_FALSE(push_log_wait(-1, oxu::INFO, "%s", std::string(1023, 'x').c_str()));
    EXPECT_EQ(get_refused_log_count(), 3U) << "a message that is too long is not counted";

    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) waiters.emplace_back([] { EXPECT_TRUE(push_log_wait(-1, oxu::INFO, "at last")); });
    EXPECT_EQ(support::countOf("at last", readLines(readEnd, 128 + 4)), 4);
    for (std::thread& waiter : waiters) waiter.join();
  });
}

TEST(FlushLog, WaitsUpToItsTimeForTheRecordBeingPrintedAndCountsAFailedWriteAsPrinted) {
  support::inChildWithPipe([](int readEnd) {
    support::fillStandardOutput();
    EXPECT_FALSE(flush_log(-1)) << "there is no logger";
    install_log_task();
    EXPECT_TRUE(flush_log(0)) << "nothing was accepted";
    EXPECT_TRUE(push_log(oxu::INFO, "waits for the console"));
    EXPECT_FALSE(flush_log(0));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(flush_log(100));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
    ::close(readEnd);
    EXPECT_TRUE(flush_log(-1));
  });
}

}  // namespace
