// The process-wide console logger: a ring that any thread fills and one core thread that prints.
//
// createUniqueLog and destroyUniqueLog are called from one thread, destroyUniqueLog while no thread logs. Between the
// two calls, the member operations may be called from any thread.
//
// | state    | reached by                    | createUniqueLog    | getUniqueLog | destroyUniqueLog |
// |----------|-------------------------------|--------------------|--------------|------------------|
// | absent   | process start, a destruction  | starts the logger  | null         | no effect        |
// | present  | creation                      | no effect          | the logger   | stops the logger |
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
  static void createUniqueLog();
  static CLog* getUniqueLog();

  // Stops the core thread after the record that it is printing, and discards the records that wait.
  static void destroyUniqueLog();

  // The level is kept for the host's own use; it filters nothing.
  void setLogLevel(LogLevel level);
  LogLevel getLogLevel() const;

  // A hint, before a record is filled: its place in the ring gets ready meanwhile.
  void prepareSlot() const { m_ring.prepareSlot(); }

  // Queues a copy; false when the ring is full.
  bool pushLogItem(LogItem& item);

  // The same, but waits for room, up to `milliseconds`: 0 does not wait, a negative number waits without a limit.
  // Refusals for lack of room are counted.
  bool pushWithin(int milliseconds, LogItem& item);
  std::uint64_t refusedCount() const;

  // Waits until the records that were accepted before the call are printed; true then. False when `milliseconds` are
  // over: 0 only looks, a negative number waits without a limit.
  bool flushWithin(int milliseconds) const;

  // Whether lines have the escape sequences for their colours; at first they have them.
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
  std::atomic<std::uint64_t> m_printed;  // number of records that are out

  // Used by the core thread alone.
  Console m_console;
  std::int64_t m_stamped_second;       // of the latest record
  std::int64_t m_stamped_millisecond;  // of the latest record
  char m_second_text[48];              // the stamped second, from the bracket to the point
  char m_stamp[80];                    // the whole stamp, blanks around it
};

}  // namespace oxu

#endif
