#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "log/OxuLog.h"
#include "oxu/CApi.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

namespace {

using oxu::LogItem;
using Ring = CRingBuffer<LogItem>;

LogItem itemWith(std::int64_t number) {
  LogItem item;
  item.seconds = number;
  return item;
}

TEST(RingBuffer, HoldsOneRecordLessThanThePowerOfTwoInTheRequest) {
  const struct {
    std::uint64_t requested, capacity;
  } rows[] = {{0, 128}, {1, 128}, {2, 2}, {3, 2}, {127, 64}, {128, 128}, {200, 128}, {1024, 1024}};
  for (const auto& row : rows) {
    Ring ring(row.requested);
    EXPECT_EQ(ring.header()->capacity, row.capacity) << row.requested;
    for (std::uint64_t i = 0; i + 1 < row.capacity; ++i) ASSERT_TRUE(ring.push(itemWith(0)));
    EXPECT_FALSE(ring.push(itemWith(0))) << row.requested;
    EXPECT_EQ(ring.header()->count, row.capacity - 1);
  }
}

TEST(RingBuffer, WithoutStorageRefusesEverything) {
  LogItem item;
  for (const std::uint64_t requested : {std::uint64_t{1} << 63, std::uint64_t{1} << 52}) {
    Ring ring(requested);
    EXPECT_EQ(ring.header(), nullptr);
    EXPECT_FALSE(ring.push(item));
    EXPECT_FALSE(ring.pop(item));
  }
}

TEST(RingBuffer, AFullRingTakesOneRecordForEachOneTakenAndKeepsTheOrder) {
  Ring ring(128);
  EXPECT_EQ(ring.header()->itemSize, 1048U);
  EXPECT_EQ(ring.header()->magic, 20231020U);
  LogItem item;
  EXPECT_FALSE(ring.pop(item));
  std::int64_t pushed = 0;
  std::int64_t taken = 0;
  while (ring.push(itemWith(pushed))) ++pushed;
  for (int round = 0; round < 300; ++round) {
    ASSERT_TRUE(ring.pop(item));
    EXPECT_EQ(item.seconds, taken++);
    ASSERT_TRUE(ring.push(itemWith(pushed++)));
    EXPECT_FALSE(ring.push(itemWith(-1)));
  }
}

// As many producers as can hold one of the ring's 127 places each: one that finds no room is a
// fault. The records carry producer, sequence number and a checksum, so that loss, tearing and
// reordering show.
TEST(RingBuffer, NeverRefusesARecordWithRoomInTheRing) {
  constexpr int kProducers = 8;
  constexpr std::int64_t kRecords = 10000;
  Ring ring(8);
  std::atomic<int> room{7};
  std::atomic<int> refused{0};
  std::vector<std::thread> producers;
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      LogItem item;
      for (std::int64_t i = 0; i < kRecords; ++i) {
        while (room.fetch_sub(1) <= 0) {
          ++room;
          std::this_thread::yield();
        }
        item.milliseconds = producer;
        item.seconds = i;
        std::memset(item.text, static_cast<int>((i + producer) % 251), sizeof item.text);
        while (!ring.push(item)) ++refused;
      }
    });
  }
  std::int64_t next[kProducers] = {};
  LogItem item;
  for (std::int64_t taken = 0; taken < kProducers * kRecords;) {
    if (!ring.pop(item)) {
      std::this_thread::yield();
      continue;
    }
    ++taken;
    ASSERT_EQ(item.seconds, next[item.milliseconds]++);
    const std::string expected(sizeof item.text,
                               static_cast<char>((item.seconds + item.milliseconds) % 251));
    ASSERT_EQ(std::memcmp(item.text, expected.data(), sizeof item.text), 0);
    ++room;
  }
  for (std::thread& producer : producers) producer.join();
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(ring.header()->count, 0U);
}

TEST(Logger, PrintsTagTimeAndTextOfEachLevel) {
  ::setenv("TZ", "<+0545>-05:45", 1);
  const struct {
    int level;
    std::int64_t seconds, milliseconds;
    const char* text;
    const char* line;
  } rows[] = {
      {0, 1706688309, 42, "a", "\x1b[34mTEST [2024-01-31 13:50:09.042]  a\x1b[0m\n"},
      {1, 1706688309, 5, "", "\x1b[32mDEBUG [2024-01-31 13:50:09.005]  \x1b[0m\n"},
      {2, 0, 999, "two\nlines", "\x1b[0mINFO [1970-01-01 05:45:00.999]  two\nlines\x1b[0m\n"},
      {3, -30641762700, 0, "%s", "\x1b[33mWARNING [0999-01-01 05:00:00.000]  %s\x1b[0m\n"},
      {4, 1706688310, 0, "e", "\x1b[31mERROR [2024-01-31 13:50:10.000]  e\x1b[0m\n"},
      {7, 1706688310, 1, "seven", " [2024-01-31 13:50:10.001]  seven\x1b[0m\n"},
      {-1, INT64_MAX, 0, "late", " [1900-01-00 00:00:00.000]  late\x1b[0m\n"},
  };
  support::DescriptorCapture output(STDOUT_FILENO);
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
  support::eventually([&] { return output.text().size() >= expected.size(); });
  EXPECT_EQ(output.text(), expected);
  uninstall_log_task();
}

TEST(Logger, StampsARecordWithTheLocalTimeOfTheCall) {
  ::setenv("TZ", "<-0330>+03:30", 1);
  support::DescriptorCapture output(STDOUT_FILENO);
  install_log_task();
  const std::time_t before = std::time(nullptr);
  push_log(oxu::INFO, "now");
  const std::time_t after = std::time(nullptr);
  support::eventually([&] { return output.text().find("now") != std::string::npos; });
  uninstall_log_task();
  std::tm stamp{};
  ASSERT_NE(::strptime(output.text().c_str(), "\x1b[0mINFO [%Y-%m-%d %H:%M:%S", &stamp), nullptr);
  const std::time_t printed = ::timegm(&stamp) + 3 * 3600 + 30 * 60;
  EXPECT_LE(before, printed);
  EXPECT_LE(printed, after);
}

TEST(PushLog, RefusesMessagesThatDoNotFitWhole) {
  support::LogCapture log;
  for (const std::size_t length : {0U, 1U, 1021U, 1022U, 1023U, 1024U, 100000U}) {
    EXPECT_EQ(push_log(3, "%s", std::string(length, 'x').c_str()), length <= 1022) << length;
  }
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffffff), 0};
  EXPECT_FALSE(push_log(3, "%ls", invalid));
  EXPECT_EQ(log.messages(), "WARNING \nWARNING x\nWARNING " + std::string(1021, 'x') +
                                "\nWARNING " + std::string(1022, 'x') + "\n");
}

TEST(PushLog, ExistsOnlyBetweenInstallAndUninstall) {
  support::DescriptorCapture output(STDOUT_FILENO);
  EXPECT_FALSE(push_log(oxu::ERROR, "too early"));
  set_log_level(4);
  EXPECT_EQ(get_log_level(), 2);
  for (int round = 0; round < 2; ++round) {
    install_log_task();
    EXPECT_EQ(get_log_level(), 2);
    set_log_level(4);
    install_log_task();
    EXPECT_EQ(get_log_level(), 4);
    EXPECT_TRUE(push_log(oxu::DEBUG, "round %d", round));
    set_log_level(-77);
    EXPECT_EQ(get_log_level(), -77);
    support::eventually([&] {
      return output.text().find(std::to_string(round) + "\x1b[0m\n") != std::string::npos;
    });
    uninstall_log_task();
    uninstall_log_task();
    EXPECT_FALSE(push_log(oxu::ERROR, "too late"));
    EXPECT_EQ(get_log_level(), 2);
  }
  EXPECT_EQ(output.text().find("too"), std::string::npos);
}

TEST(PushLog, RefusesTheRecordAfter127ThatWaitForAThreadThatCannotStart) {
  const faults::Fault fault(faults::kThread, EAGAIN);
  install_log_task();
  for (int i = 0; i < 127; ++i) ASSERT_TRUE(push_log(2, "waiting"));
  EXPECT_FALSE(push_log(2, "one too many"));
  support::DescriptorCapture output(STDOUT_FILENO);
  uninstall_log_task();
  EXPECT_EQ(output.text(), "");
}

TEST(PushLog, PrintsEveryAcceptedRecordOnceWholeAndInItsProducersOrder) {
  constexpr int kProducers = 8;
  constexpr int kRecords = 2000;
  support::LogCapture log;
  std::vector<std::thread> producers;
  std::atomic<int> accepted{0};
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&accepted, producer] {
      const std::string filler(static_cast<std::size_t>(producer) * 100, 'f');
      for (int i = 0; i < kRecords; ++i) {
        if (push_log(producer % 5, "%d %d %s.", producer, i, filler.c_str())) ++accepted;
      }
    });
  }
  for (std::thread& producer : producers) producer.join();
  std::istringstream lines(log.messages());
  std::map<int, int> last;
  int printed = 0;
  for (std::string line; std::getline(lines, line); ++printed) {
    int producer = 0;
    int number = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "%*s %d %d", &producer, &number), 2) << line;
    EXPECT_LT(last.emplace(producer, -1).first->second, number);
    last[producer] = number;
    const std::string end = " " + std::string(static_cast<std::size_t>(producer) * 100, 'f') + ".";
    EXPECT_EQ(line.substr(line.size() - end.size()), end);
  }
  EXPECT_EQ(printed, accepted);
}

TEST(Logger, SurvivesAStandardOutputWhoseReaderHasGone) {
  const int status = support::statusOfChild([] {
    int fds[2];
    if (::pipe(fds) != 0 || ::dup2(fds[1], STDOUT_FILENO) == -1) return false;
    ::close(fds[0]);
    ::close(fds[1]);
    install_log_task();
    while (push_log(oxu::INFO, "nobody reads this")) std::this_thread::yield();
    ::usleep(50000);
    const bool stillPrinting = push_log(oxu::INFO, "nor this");
    uninstall_log_task();
    return stillPrinting;
  });
  EXPECT_EQ(status, 0);
}

// Without SA_RESTART a handler on the printing thread would cut a waiting write short.
TEST(Logger, KeepsLinesWholeWhileSignalsArriveAndTheConsoleIsSlow) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const int savedStdout = ::dup(STDOUT_FILENO);
  std::fflush(stdout);
  ::dup2(fds[1], STDOUT_FILENO);
  ::close(fds[1]);
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  install_log_task();
  // From now on only the logger's thread could take the signal.
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  ::pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
  const std::string text(1000, 't');
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(push_log(oxu::TEST, "%s", text.c_str()));
  const itimerval every{{0, 500}, {0, 500}};
  ::setitimer(ITIMER_REAL, &every, nullptr);
  std::string received;
  char buffer[1500];
  while (received.size() < 100 * (text.size() + 42)) {
    ::usleep(1000);
    const ssize_t size = ::read(fds[0], buffer, sizeof buffer);
    if (size > 0) received.append(buffer, static_cast<std::size_t>(size));
  }
  const itimerval off{};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  ::pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
  ::dup2(savedStdout, STDOUT_FILENO);
  ::close(savedStdout);
  uninstall_log_task();
  ::close(fds[0]);
  std::size_t whole = 0;
  for (std::size_t at = 0; (at = received.find(text + "\x1b[0m\n", at)) != std::string::npos; ++at)
    ++whole;
  EXPECT_EQ(whole, 100U);
}

}  // namespace
