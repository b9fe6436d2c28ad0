// The process-wide console logger: a ring that any thread fills and one core thread that prints.
//
// createUniqueLog and destroyUniqueLog are called from one thread, the latter while no thread logs.
// Between the two, the member operations may be called from any thread.
#ifndef LOG_OXULOG_H
#define LOG_OXULOG_H

#include <atomic>
#include <cstdint>

#include "log/Console.h"
#include "log/IdlePause.h"
#include "log/LogItem.h"
#include "log/RingBuffer.h"
#include "os/os_thread.h"
#include "oxu/LogLevel.h"

namespace oxu {

class CLog {
 public:
  // Starts the logger; without effect when there is one.
  static void createUniqueLog();

  // Null before creation and after destruction.
  static CLog* getUniqueLog();

  // Stops the core thread after the record that it prints, and discards those that wait.
  static void destroyUniqueLog();

  // The level is kept for the host's own use; it filters nothing.
  void setLogLevel(LogLevel level);
  LogLevel getLogLevel() const;

  // Queues a copy; false when the ring is full.
  bool pushLogItem(LogItem& item);

  // The same, and waits for room, up to so many milliseconds (0 does not wait, a negative number waits without a
  // limit). A refusal for lack of room is counted.
  bool pushWithin(int milliseconds, LogItem& item);
  std::uint64_t refusedCount() const;

  // True once the records that were accepted before are printed; milliseconds as above, 0 only looks.
  bool flushWithin(int milliseconds) const;

  // Whether the lines have the escape sequences for their colours; they have at first.
  void setColors(bool on);

  virtual ~CLog();
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;

 private:
  CLog();

  static void* _coreThread(void* log);
  static const char* _levelStr(LogLevel level);
  void _printLog(LogItem& item);
  void startSecond(std::int64_t seconds);
  void startMillisecond(std::int64_t milliseconds);

  static std::atomic<CLog*> m_pInstance;

  std::atomic<LogLevel> m_level;
  CRingBuffer<LogItem> m_ring;
  std::atomic<bool> m_running;
  os_thread_handle m_thread;
  std::int32_t m_interval;  // nanoseconds
  IdlePause m_pause;
  std::atomic<bool> m_colors;
  std::atomic<std::uint64_t> m_refused;
  std::atomic<std::uint64_t> m_printed;  // records, all of which are out

  // The core thread's alone: the console, the time of the latest record, and that time as text, blanks around it.
  Console m_console;
  std::int64_t m_stamped_second;
  std::int64_t m_stamped_millisecond;
  char m_second_text[48];
  char m_stamp[80];
};

}  // namespace oxu

#endif
