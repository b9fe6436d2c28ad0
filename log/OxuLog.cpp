#include "log/OxuLog.h"

#include <cstdio>
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
      m_second_text() {
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
  char stamp[64] = {};
  std::snprintf(stamp, sizeof stamp, "%s%03d] ", secondText(item.seconds), static_cast<int>(item.milliseconds));
  std::printf("%s %s %s\x1b[0m\n", _levelStr(item.level), stamp, item.text);
  std::fflush(stdout);
}

// "[YYYY-MM-DD hh:mm:ss." in local time. The C library looks at the time zone's file at each conversion, a
// system call, so a second is converted once and not once per record. tzset keeps up with a zone that changes
// while the host runs.
const char* CLog::secondText(std::int64_t seconds) {
  if (seconds == m_converted_second && m_second_text[0] != '\0') return m_second_text;
  const std::time_t time = seconds;
  std::tm local{};
  ::tzset();
  // A second beyond the years that an int holds cannot be converted, and is printed as zeros.
  if (::localtime_r(&time, &local) == nullptr) local = {};
  std::snprintf(m_second_text, sizeof m_second_text, "[%04ld-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900L,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  m_converted_second = seconds;
  return m_second_text;
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
