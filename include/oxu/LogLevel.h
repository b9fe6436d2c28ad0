/// The severity of a log record.
#ifndef OXU_LOG_LEVEL_H
#define OXU_LOG_LEVEL_H

#include <cstdint>

// Some of these names are macros in many builds (-DDEBUG). Such macros are set aside here and restored below. A source
// file that has one of them passes the level as a number.
#pragma push_macro("TEST")
#pragma push_macro("DEBUG")
#pragma push_macro("INFO")
#pragma push_macro("WARNING")
#pragma push_macro("ERROR")
#undef TEST
#undef DEBUG
#undef INFO
#undef WARNING
#undef ERROR

namespace oxu {

/// The levels that have a tag. Unscoped, so that push_log, which takes an int, takes oxu::INFO. Any other 32-bit value
/// is allowed as well: it travels unchanged and is printed with an empty tag.
enum LogLevel : std::int32_t {
  TEST = 0,
  DEBUG = 1,
  INFO = 2,
  WARNING = 3,
  ERROR = 4,
};

}  // namespace oxu

#pragma pop_macro("ERROR")
#pragma pop_macro("WARNING")
#pragma pop_macro("INFO")
#pragma pop_macro("DEBUG")
#pragma pop_macro("TEST")

#endif
