// One log record, as it travels through the ring.
#ifndef LOG_LOGITEM_H
#define LOG_LOGITEM_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "oxu/LogLevel.h"

namespace oxu {

// Copied into and out of the ring as one block, so the layout is fixed. A new record has a level; whoever fills it
// writes the other fields. Clearing the text would make a push into the ring half as expensive again.
struct LogItem {
  LogItem() : level(INFO) {}

  LogLevel level;
  std::uint32_t reserved;     // neither written nor read
  std::int64_t milliseconds;  // 0 to 999, the part of the second
  std::int64_t seconds;       // since 1970-01-01 00:00:00 UTC
  char text[1024];            // NUL-terminated
};

static_assert(std::is_trivially_copyable_v<LogItem>);
static_assert(offsetof(LogItem, level) == 0);
static_assert(offsetof(LogItem, milliseconds) == 8);
static_assert(offsetof(LogItem, seconds) == 16);
static_assert(offsetof(LogItem, text) == 24);
static_assert(sizeof(LogItem) == 1048);

}  // namespace oxu

#endif
