// Strings as JSON has them.
#ifndef JSON_JSONESCAPE_H
#define JSON_JSONESCAPE_H

#include <string>
#include <string_view>

namespace oxu::json {

// Appends the bytes as they may stand between the quotes of a JSON string: quotes, backslashes and control characters
// escaped, and U+FFFD for each byte that is not part of valid UTF-8.
void appendEscaped(std::string& text, std::string_view bytes);

}  // namespace oxu::json

#endif
