// What Json leaves to its host: strings that need escapes, and numbers that it has no type for.
#ifndef COMMON_JSONTEXT_H
#define COMMON_JSONTEXT_H

#include <string>

#include "oxu/Json.h"

namespace common {

// The text as it may stand between the quotes of a JSON string: Json writes strings as they are. Bytes that are
// no UTF-8 become U+FFFD.
std::string escaped(const std::string& text);

// Json's integers have 32 bits, and its doubles are written with six digits: a larger count is a text.
oxu::json::Json number(unsigned long value);

}  // namespace common

#endif
