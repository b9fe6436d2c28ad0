#include "log/OxuLog.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <limits>
#include <new>

#include "os/os_signal.h"

namespace oxu {

namespace {
constexpr std::uint64_t kRingSlots = 128;
constexpr std::int32_t kIdlePauseNs = 10000000;
constexpr std::int32_t kNanosecondsPerMillisecond = 1000000;
constexpr int kCoreThreadPriority = 2;
}  // namespace

std::atomic<CLog*> CLog::m_pInstance{nullptr};

void CLog::createUniqueLog() {
  if (m_pInstance.load() == nullptr) m_pInstance.store(new (std::nothrow) CLog);
}

CLog* CLog::getUniqueLog() { return m_pInstance.load(std::memory_order_acquire); }

void CLog::destroyUniqueLog() {
  delete m_pInstance.load();
  m_pInstance.store(nullptr);
}

CLog::CLog()
    : m_level(INFO),
      m_ring(kRingSlots),
      m_running(true),
      m_thread(0),
      m_interval(kIdlePauseNs),
      m_converted_second(std::numeric_limits<std::int64_t>::min()),
      m_second_text(),
      m_console_blocks(true) {
  os_thread_create(&m_thread, _coreThread, this, kCoreThreadPriority, 0);
}

CLog::~CLog() {
  m_running = false;
  if (m_thread == 0) return;
  os_thread_join(m_thread, nullptr);
  m_thread = 0;
}

void CLog::setLogLevel(LogLevel level) { m_level.store(level, std::memory_order_relaxed); }

LogLevel CLog::getLogLevel() const { return m_level.load(std::memory_order_relaxed); }

bool CLog::pushLogItem(LogItem& item) { return m_ring.push(item); }

void* CLog::_coreThread(void* log) {
  // A signal handler that runs here would cut a write short, and stdio drops what is left of it.
  // With SIGPIPE blocked, a standard output whose reader has gone is a failed write and not the
  // host's end.
  os_signal_block_all();
  auto* self = static_cast<CLog*>(log);
  LogItem item;
  while (self->m_running) {
    if (self->m_ring.pop(item)) {
      self->_printLog(item);
    } else {
      os_thread_sleep_milliseconds(self->m_interval / kNanosecondsPerMillisecond, 0);
    }
  }
  return nullptr;
}

void CLog::_printLog(LogItem& item) {
  if (item.seconds != m_converted_second || m_second_text[0] == '\0') startSecond(item.seconds);
  if (!m_console_blocks) waitForConsole();
  char stamp[64] = {};
  std::snprintf(stamp, sizeof stamp, "%s%03d] ", m_second_text, static_cast<int>(item.milliseconds));
  std::printf("%s %s %s\x1b[0m\n", _levelStr(item.level), stamp, item.text);
  std::fflush(stdout);
}

// What need not be found out for each record is found out for each second of log time. The text is that of
// localtime, which makes a system call or two to keep up with a changed time zone.
void CLog::startSecond(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm local{};
  ::tzset();
  // A second beyond the years that an int holds cannot be converted, and counts as the start of 1900.
  if (::localtime_r(&time, &local) == nullptr) local = {};
  std::snprintf(m_second_text, sizeof m_second_text, "[%04ld-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900L,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  m_converted_second = seconds;
  const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
  m_console_blocks = flags == -1 || (flags & O_NONBLOCK) == 0;
}

// A standard output that does not block, such as that of a command launched by this library, refuses what it has
// no room for, and stdio drops what is refused. A pipe with room takes a whole line.
void CLog::waitForConsole() const {
  pollfd console{STDOUT_FILENO, POLLOUT, 0};
  while (m_running && ::poll(&console, 1, m_interval / kNanosecondsPerMillisecond) == 0) {
  }
}

const char* CLog::_levelStr(LogLevel level) {
  switch (level) {
    case TEST:
      return "\x1b[34mTEST";
    case DEBUG:
      return "\x1b[32mDEBUG";
    case INFO:
      return "\x1b[0mINFO";
    case WARNING:
      return "\x1b[33mWARNING";
    case ERROR:
      return "\x1b[31mERROR";
  }
  return "";
}

}  // namespace oxu
