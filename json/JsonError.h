// How Json reports misuse.
#ifndef JSON_JSONERROR_H
#define JSON_JSONERROR_H

#include <stdexcept>
#include <string>

namespace oxu::json {

inline void throwUnless(bool holds, const char* message) {
  if (!holds) throw std::logic_error(message);
}

// The text, as a string's constructor would take it, but with null an error everywhere.
inline std::string textOf(const char* text) {
  throwUnless(text != nullptr, "basic_string: construction from null is not valid");
  return text;
}

}  // namespace oxu::json

#endif
