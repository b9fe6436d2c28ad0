#include "log/OxuLog.h"
#include "oxu/CApi.h"
#include "tests/support/Test.h"

namespace {

using oxu::LogItem;
using Ring = CRingBuffer<LogItem>;

LogItem itemWith(std::int64_t seconds) {
  LogItem item;
  item.seconds = seconds;
  return item;
}

TEST(RingBuffer, HoldsOneRecordLessThanThePowerOfTwoInTheRequest) {
  EXPECT_FALSE(Ring(std::uint64_t{1} << 52).push(itemWith(0))) << "there is no such memory";
  const std::int64_t rows[][2] = {{0, 128}, {1, 128}, {2, 2}, {3, 2}, {127, 64}, {200, 128}, {1024, 1024}};
  for (const auto& [requested, capacity] : rows) {
    Ring ring(static_cast<std::uint64_t>(requested));
    LogItem item;
    EXPECT_FALSE(ring.pop(item));
    for (std::int64_t i = 1; i < capacity; ++i) ASSERT_TRUE(ring.push(itemWith(i))) << requested;
    for (std::int64_t i = 1; i < 3 * capacity; ++i) {
      EXPECT_FALSE(ring.push(itemWith(-1))) << requested;
      ASSERT_TRUE(ring.pop(item) && ring.push(itemWith(capacity - 1 + i)));
      EXPECT_EQ(item.seconds, i);
    }
    EXPECT_EQ(ring.header()->count, static_cast<std::uint64_t>(capacity - 1));
  }
}

// No more producers push at a time than the ring has room for: one that is refused is a fault. The records
// carry producer, sequence number and a fill byte made of both, so that loss, tearing and reordering show.
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
  EXPECT_TRUE(refused == 0 && ring.header()->count == 0) << refused;
}

TEST(Logger, PrintsTagLocalTimeAndTextOfEachLevel) {
  ::setenv("TZ", "<+0545>-05:45", 1);
  const struct {
    int level;
    std::int64_t seconds, milliseconds;
    const char *text, *line;
  } rows[] = {
      {0, 1706688309, 42, "a", "\x1b[34mTEST [2024-01-31 13:50:09.042]  a\x1b[0m\n"},
      {1, 1706688309, 5, "", "\x1b[32mDEBUG [2024-01-31 13:50:09.005]  \x1b[0m\n"},
      {2, 0, 999, "two\nlines", "\x1b[0mINFO [1970-01-01 05:45:00.999]  two\nlines\x1b[0m\n"},
      {3, -30641762700, 0, "%s", "\x1b[33mWARNING [0999-01-01 05:00:00.000]  %s\x1b[0m\n"},
      {4, 1706688310, 0, "e", "\x1b[31mERROR [2024-01-31 13:50:10.000]  e\x1b[0m\n"},
      {7, 1706688310, 1, "seven", " [2024-01-31 13:50:10.001]  seven\x1b[0m\n"},
      {-1, INT64_MIN, 0, "late", " [1900-01-00 00:00:00.000]  late\x1b[0m\n"},
  };
  support::LogCapture log;
  std::string expected;
  for (const auto& row : rows) {
    LogItem item = itemWith(row.seconds);
    item.level = static_cast<oxu::LogLevel>(row.level);
    item.milliseconds = row.milliseconds;
    std::snprintf(item.text, sizeof item.text, "%s", row.text);
    ASSERT_TRUE(oxu::CLog::getUniqueLog()->pushLogItem(item));
    expected += row.line;
  }
  log.eventuallyContains("late\x1b[0m\n");
  EXPECT_EQ(log.text(), expected);

  const std::time_t before = std::time(nullptr);
  push_log(oxu::INFO, "now");
  log.eventuallyContains("now");
  std::tm stamp{};
  ASSERT_NE(::strptime(log.text().substr(expected.size()).c_str(), "\x1b[0mINFO [%Y-%m-%d %H:%M:%S", &stamp), nullptr);
  const std::time_t printed = ::timegm(&stamp) - 5 * 3600 - 45 * 60;
  EXPECT_TRUE(before <= printed && printed <= std::time(nullptr)) << log.text();
}

TEST(PushLog, RefusesMessagesThatDoNotFitWhole) {
  support::LogCapture log;
  std::string expected;
  for (const std::size_t length : {0U, 1021U, 1022U, 1023U, 1024U, 100000U}) {
    const std::string text(length, 'x');
    EXPECT_EQ(push_log(3, "%s", text.c_str()), length <= 1022) << length;
    if (length <= 1022) expected += "WARNING " + text + "\n";
  }
  const wchar_t invalid[] = {static_cast<wchar_t>(0x7fffffff), 0};
  EXPECT_FALSE(push_log(3, "%ls", invalid));
  EXPECT_EQ(log.messages(), expected);
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
  EXPECT_EQ(output.text().find("not installed"), std::string::npos);
}

TEST(PushLog, RefusesTheRecordAfter127ThatWaitAndDiscardsThoseAtTheEnd) {
  const faults::Fault noThread(faults::kThread, EAGAIN);
  const support::DescriptorCapture output(STDOUT_FILENO);
  install_log_task();
  for (int i = 0; i < 127; ++i) EXPECT_TRUE(push_log(2, "waiting"));
  EXPECT_FALSE(push_log(2, "one too many"));
  uninstall_log_task();
  EXPECT_EQ(output.text(), "");
}

// A console that stands still: one record is being printed, and 127 fill the ring.
bool stallLogger() {
  ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 4096);
  const std::string pipeful(4096, 'f');
  if (::write(STDOUT_FILENO, pipeful.data(), pipeful.size()) != 4096) return false;
  install_log_task();
  for (int i = 0; i < 128; ++i) {
    if (!push_log_wait(10000, oxu::INFO, "record %d", i)) return false;
  }
  return true;
}

std::chrono::milliseconds timeOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

TEST(PushLogWait, WaitsForRoomAsLongAsItMayAndCountsWhatIsRefused) {
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    if (push_log_wait(-1, 2, "no logger") || get_refused_log_count() != 0 || !stallLogger()) return false;
    const std::string tooLong(1023, 'x');
    bool isRefused = !push_log(2, "full") && !push_log_wait(0, 2, "full") && get_refused_log_count() == 2;
    isRefused = isRefused && !push_log_wait(-1, 2, "%s", tooLong.c_str()) && get_refused_log_count() == 2;
    const auto waited = timeOf([&] { isRefused = isRefused && !push_log_wait(50, 2, "full"); });
    isRefused = isRefused && waited >= std::chrono::milliseconds(50) && get_refused_log_count() == 3;

    std::atomic<int> accepted{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) waiters.emplace_back([&] { accepted += push_log_wait(-1, 2, "at last"); });
    support::SharedText received;
    std::thread([&received, readEnd] {
      char buffer[4096];
      for (ssize_t size; (size = ::read(readEnd, buffer, sizeof buffer)) > 0;)
        received.append(std::string(buffer, static_cast<std::size_t>(size)));
    }).detach();
    for (std::thread& waiter : waiters) waiter.join();
    const bool isFlushed = flush_log(-1);
    return isRefused && accepted == 4 && isFlushed && received.eventuallyContains("record 127") &&
           support::eventually([&] { return support::countOf("at last", received.get()) == 4; });
  }));
}

TEST(FlushLog, ReturnsOnceWhatWasAcceptedIsPrintedOrTheTimeIsOver) {
  EXPECT_FALSE(flush_log(-1)) << "there is no logger";
  {
    const support::DescriptorCapture output(STDOUT_FILENO);
    install_log_task();
    EXPECT_TRUE(flush_log(0)) << "nothing was accepted";
    for (int i = 0; i < 200; ++i) {
      const std::string record = "record " + std::to_string(i) + ".";
      EXPECT_TRUE(push_log_wait(-1, oxu::INFO, "%s", record.c_str()));
      if (i % 3 != 0) continue;
      EXPECT_TRUE(flush_log(-1));
      EXPECT_NE(output.text().find(record), std::string::npos);
    }
    uninstall_log_task();
  }
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    if (!stallLogger()) return false;
    bool isFlushed = flush_log(0);
    const auto waited = timeOf([&] { isFlushed = flush_log(50) || isFlushed; });
    // A record that cannot be written counts as printed.
    ::close(readEnd);
    return !isFlushed && waited >= std::chrono::milliseconds(50) && flush_log(-1);
  }));
}

TEST(LogColors, AreLeftOutOfTheLinesPrintedAfterTheCall) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  set_log_colors(false);  // without a logger it does nothing
  install_log_task();
  for (const bool on : {true, false, true}) {
    set_log_colors(on);
    for (const int level : {0, 4, 7}) push_log(level, "m");
    EXPECT_TRUE(flush_log(-1));
  }
  uninstall_log_task();
  std::string expected;
  for (const char* line : {"\x1b[34mTEST []  m\x1b[0m\n", "\x1b[31mERROR []  m\x1b[0m\n", " []  m\x1b[0m\n"})
    expected += line;
  expected += "TEST []  m\nERROR []  m\n []  m\n" + expected;
  std::string text = output.text();
  for (std::size_t at = 0; (at = text.find("[20", at)) != std::string::npos; ++at)
    text.erase(at + 1, text.find(']', at) - at - 1);
  EXPECT_EQ(text, expected);
}

TEST(PushLog, PrintsEveryAcceptedRecordOnceWholeAndInItsProducersOrder) {
  support::LogCapture log;
  std::vector<std::thread> producers;
  std::atomic<int> accepted{0};
  for (int producer = 0; producer < 8; ++producer) {
    producers.emplace_back([&accepted, producer] {
      const std::string filler(static_cast<std::size_t>(producer) * 100, 'f');
      for (int i = 0; i < 2000; ++i) accepted += push_log(producer % 5, "%d %d %s.", producer, i, filler.c_str());
    });
  }
  for (std::thread& producer : producers) producer.join();
  std::istringstream lines(log.messages());
  std::map<std::size_t, int> last;
  int printed = 0;
  std::string tag, filler;
  std::size_t producer = 0;
  for (int number = 0; std::getline(lines >> tag >> producer >> number, filler); ++printed) {
    EXPECT_LT(last.emplace(producer, -1).first->second, number);
    last[producer] = number;
    EXPECT_EQ(filler, " " + std::string(producer * 100, 'f') + ".");
  }
  EXPECT_EQ(printed, accepted);
}

TEST(Logger, SurvivesAStandardOutputWhoseReaderHasGone) {
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    ::close(readEnd);
    install_log_task();
    while (push_log(oxu::INFO, "nobody reads this")) std::this_thread::yield();
    return support::eventually([] { return push_log(oxu::INFO, "nor this"); });
  }));
}

// Without SA_RESTART, a handler on the printing thread would cut a waiting write short; a console that does not
// block would refuse lines.
TEST(Logger, KeepsLinesWholeWhileSignalsArriveAndTheConsoleIsSlow) {
  for (const int flags : {0, O_NONBLOCK}) {
    EXPECT_TRUE(support::holdsWithPipe([flags](int readEnd) {
      ::fcntl(STDOUT_FILENO, F_SETFL, flags);
      struct sigaction action {};
      action.sa_handler = [](int) {};
      ::sigaction(SIGALRM, &action, nullptr);
      install_log_task();
      // From now on only the logger's thread could take the signal.
      sigset_t alarms;
      sigemptyset(&alarms);
      sigaddset(&alarms, SIGALRM);
      ::pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
      const itimerval every{{0, 500}, {0, 500}};
      ::setitimer(ITIMER_REAL, &every, nullptr);
      const std::string text(1000, 't');
      for (int i = 0; i < 100; ++i) push_log(oxu::TEST, "%s", text.c_str());
      std::string received;
      for (char buffer[1500]; received.size() < 100 * (text.size() + 42); ::usleep(1000)) {
        const ssize_t size = ::read(readEnd, buffer, sizeof buffer);
        if (size > 0) received.append(buffer, static_cast<std::size_t>(size));
      }
      return support::countOf(text + "\x1b[0m\n", received) == 100;
    }));
  }
}

// A redirection, or another process that shares the console, sets the flag at any moment.
TEST(Logger, LosesNoRecordWhenTheConsoleStopsBlockingBetweenTwoRecords) {
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    constexpr int kRecords = 1500;
    install_log_task();
    std::thread producer([] {
      for (int i = 0; i < kRecords; ++i) {
        while (!push_log(oxu::INFO, "record %d of many.", i)) std::this_thread::yield();
        if (i == kRecords / 10) ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
      }
    });
    std::string received;
    const std::string last = support::filled("record # of many.", {kRecords - 1});
    for (char buffer[4096]; received.find(last) == std::string::npos; ::usleep(200)) {
      received.append(buffer, static_cast<std::size_t>(::read(readEnd, buffer, sizeof buffer)));
    }
    producer.join();
    std::size_t at = 0;
    for (int i = 0; i < kRecords && at != std::string::npos; ++i) {
      at = received.find(support::filled("  record # of many.\x1b[0m\n", {i}), at);
    }
    return at != std::string::npos && support::countOf("record", received) == kRecords;
  }));
}

ssize_t appendTo(void* text, const char* data, std::size_t size) {
  static_cast<support::SharedText*>(text)->append(std::string(data, size));
  return static_cast<ssize_t>(size);
}

TEST(Logger, PrintsBehindWhatTheHostHasPrinted) {
  support::LogCapture log;
  std::printf("the host's own line\n");
  push_log(oxu::INFO, "a record");
  EXPECT_EQ(log.messages(), "the host's own line\nINFO a record\n");
}

TEST(Logger, PrintsIntoAStreamOfTheHostsThatHasNoDescriptor) {
  EXPECT_TRUE(support::holdsInChild([] {
    support::SharedText text;
    const cookie_io_functions_t functions{nullptr, appendTo, nullptr, nullptr};
    stdout = ::fopencookie(&text, "w", functions);
    install_log_task();
    push_log(oxu::INFO, "into memory");
    const bool isPrinted = text.eventuallyContains("  into memory\x1b[0m\n");
    uninstall_log_task();
    return isPrinted;
  }));
}

}  // namespace
