#include "log/OxuLog.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include "os/os_signal.h"
#include "os/os_wait.h"

namespace oxu {

namespace {
constexpr std::uint64_t kRingSlots = 128;
constexpr std::int32_t kIdlePauseNs = 10 * kNanosecondsPerMs;
constexpr std::uint64_t kHalfFull = kRingSlots / 2;
constexpr std::uint64_t kNearlyFull = kRingSlots - kRingSlots / 8;
constexpr int kCoreThreadPriority = 2;
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min();
// A tag, a time stamp, a message and the reset of the colour.
constexpr std::size_t kMaxLineBytes = sizeof(LogItem::text) + 128;

// The tag behind its escape sequence, which ends in m.
const char* withoutColor(const char* tag) {
  const char* const end = std::strchr(tag, 'm');
  return end != nullptr ? end + 1 : tag;
}
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
      m_colors(true),
      m_refused(0),
      m_printed(0),
      m_console(m_running),
      m_stamped_second(kNever),
      m_stamped_millisecond(kNever),
      m_second_text(),
      m_stamp() {
  // The thread inherits the mask: no handler of the host ever runs on it.
  const os_signal_all_guard undisturbed;
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

// A record that makes the ring half full ends the core thread's pause. When the ring is nearly full all the same, the
// core thread may be waiting for the caller's processor, and gets it.
bool CLog::pushLogItem(LogItem& item) {
  if (!m_ring.push(item)) return false;
  if (m_pause.isWaiting()) {
    if (m_ring.waiting() >= kHalfFull) m_pause.end();
  } else if (m_ring.waiting() >= kNearlyFull) {
    os_thread_yield();
  }
  return true;
}

bool CLog::pushWithin(int milliseconds, LogItem& item) {
  // A ring without storage never gets room, and its refusals are not counted: they do not come from a full ring.
  if (m_ring.header() == nullptr) return false;
  if (os_wait_until(milliseconds, [&] { return pushLogItem(item); })) return true;
  m_refused.fetch_add(1, std::memory_order_relaxed);
  return false;
}

std::uint64_t CLog::refusedCount() const { return m_refused.load(std::memory_order_relaxed); }

// Each accepted record is committed, so commitIndex counts them. readIndex does not count the printed ones: it moves on
// before the record is printed.
bool CLog::flushWithin(int milliseconds) const {
  if (m_ring.header() == nullptr) return true;
  const std::uint64_t accepted = os_thread_sync_load(&m_ring.header()->commitIndex);
  return os_wait_until(milliseconds, [&] { return m_printed.load() >= accepted; });
}

void CLog::setColors(bool on) { m_colors.store(on, std::memory_order_relaxed); }

void* CLog::_coreThread(void* log) {
  // A handler of the host must not wait for the console. With SIGPIPE blocked, a standard output whose reader has gone
  // makes a write fail, and does not end the host.
  os_signal_block_all();
  auto* self = static_cast<CLog*>(log);
  LogItem item;
  while (self->m_running) {
    if (self->m_ring.pop(item)) {
      self->_printLog(item);
      ++self->m_printed;
    } else {
      self->m_pause.wait(static_cast<int>(self->m_interval / kNanosecondsPerMs),
                         [self] { return self->m_ring.waiting() >= kHalfFull; });
    }
  }
  return nullptr;
}

void CLog::_printLog(LogItem& item) {
  if (item.seconds != m_stamped_second || m_second_text[0] == '\0') startSecond(item.seconds);
  if (item.milliseconds != m_stamped_millisecond) startMillisecond(item.milliseconds);
  const bool isColored = m_colors.load(std::memory_order_relaxed);
  const char* const tag = _levelStr(item.level);
  char line[kMaxLineBytes];
  char* end = ::stpcpy(line, isColored ? tag : withoutColor(tag));
  end = ::stpcpy(end, m_stamp);
  end = ::stpcpy(end, item.text);
  end = ::stpcpy(end, isColored ? "\x1b[0m\n" : "\n");
  m_console.write(line, static_cast<std::size_t>(end - line));
}

// Done once per second of log time, not once per record: to keep up with a changed time zone, tzset may make system
// calls.
void CLog::startSecond(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm local{};
  ::tzset();
  // A second beyond the years that an int holds cannot be converted, and counts as the start of 1900.
  if (::localtime_r(&time, &local) == nullptr) local = {};
  std::snprintf(m_second_text, sizeof m_second_text, "[%04ld-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900L,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  m_stamped_second = seconds;
  m_stamped_millisecond = kNever;
}

void CLog::startMillisecond(std::int64_t milliseconds) {
  std::snprintf(m_stamp, sizeof m_stamp, " %s%03d]  ", m_second_text, static_cast<int>(milliseconds));
  m_stamped_millisecond = milliseconds;
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
