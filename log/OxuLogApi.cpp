#include <chrono>
#include <cstdarg>
#include <cstdio>

#include "log/OxuLog.h"
#include "oxu/CApi.h"

namespace {

// The room for a message and its NUL is one byte less than the field. A message that does not fit is refused as a
// whole.
constexpr std::size_t kFormatLimit = sizeof(oxu::LogItem::text) - 1;

void stampWithNow(oxu::LogItem& item) {
  using std::chrono::nanoseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t sinceEpoch = std::chrono::duration_cast<nanoseconds>(now).count();
  item.seconds = sinceEpoch / kNanosecondsPerSecond;
  item.milliseconds = sinceEpoch / kNanosecondsPerMs - item.seconds * 1000;
}

bool pushFormatted(int milliseconds, int level, const char* format, va_list arguments) {
  if (const oxu::CLog* log = oxu::CLog::getUniqueLog()) log->prepareSlot();
  oxu::LogItem item;
  item.level = static_cast<oxu::LogLevel>(level);
  stampWithNow(item);
  const int length = std::vsnprintf(item.text, kFormatLimit, format, arguments);
  // Unsigned: the negative length of a message that cannot be formatted is too long as well.
  if (static_cast<unsigned>(length) >= kFormatLimit) return false;
  oxu::CLog* log = oxu::CLog::getUniqueLog();
  return log != nullptr && log->pushWithin(milliseconds, item);
}

}  // namespace

void install_log_task() { oxu::CLog::createUniqueLog(); }

void uninstall_log_task() { oxu::CLog::destroyUniqueLog(); }

void set_log_level(int level) {
  oxu::CLog* log = oxu::CLog::getUniqueLog();
  if (log != nullptr) log->setLogLevel(static_cast<oxu::LogLevel>(level));
}

int get_log_level() {
  const oxu::CLog* log = oxu::CLog::getUniqueLog();
  return log != nullptr ? log->getLogLevel() : oxu::INFO;
}

bool push_log(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool isQueued = pushFormatted(0, level, format, arguments);
  va_end(arguments);
  return isQueued;
}

bool push_log_wait(int milliseconds, int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool isQueued = pushFormatted(milliseconds, level, format, arguments);
  va_end(arguments);
  return isQueued;
}

bool flush_log(int milliseconds) {
  const oxu::CLog* log = oxu::CLog::getUniqueLog();
  return log != nullptr && log->flushWithin(milliseconds);
}

unsigned long long get_refused_log_count() {
  const oxu::CLog* log = oxu::CLog::getUniqueLog();
  return log != nullptr ? log->refusedCount() : 0;
}

void set_log_colors(bool on) {
  oxu::CLog* log = oxu::CLog::getUniqueLog();
  if (log != nullptr) log->setColors(on);
}
