/// A value that holds null, a bool, an int, a double, a string, an array or an object.
///
/// A value owns what it holds: copies are deep, nothing is shared. Nesting may be of any depth; whatever it is, no
/// operation needs more than some 64 KiB of stack.
///
/// Errors are std::logic_error with the message given beside the operation (the standard library's for a null const
/// char*), the value unchanged. std::bad_alloc passes to the caller; a Null may be an empty array or object by then.
///
/// A reference from operator[] or get is valid until the array that holds the element changes its size, the member is
/// removed, or the value, or one around it, is assigned or cleared. So `a[a.size()] = a[0]` reads an element that is
/// gone; `a.append(a[0])` does not.
///
/// Threads: const operations may run at the same time on a value that no thread changes. The others need the value for
/// themselves, operator[] of a value that is not const among them.
#ifndef OXU_JSON_H
#define OXU_JSON_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "oxu/Export.h"

namespace oxu::json {

class OXU_EXPORT Json {
 public:
  enum Type : std::int32_t { Null = 0, Bool = 1, Int = 2, Double = 3, String = 4, Array = 5, Object = 6 };

  Json();
  Json(Type type);  ///< Empty: false, 0, 0.0, "", [] or {}.
  Json(bool value);
  Json(int value);
  Json(double value);
  Json(const char* value);
  Json(const std::string& value);
  Json(const Json& other);
  ~Json();

  Type type() const { return m_type; }
  bool isNull() const { return m_type == Null; }
  bool isBool() const { return m_type == Bool; }
  bool isInt() const { return m_type == Int; }
  bool isDouble() const { return m_type == Double; }
  bool isString() const { return m_type == String; }
  bool isArray() const { return m_type == Array; }
  bool isObject() const { return m_type == Object; }

  bool asBool() const;           ///< "function Json::asBool value type error" for any other kind.
  int asInt() const;             ///< "function Json::asInt value type error"; no double is read as an int.
  double asDouble() const;       ///< "function Json::asDouble value type error"; nor an int as a double.
  std::string asString() const;  ///< "function Json::asString value type error"

  /// The same, implicitly. "function Json::operator (bool) requires bool value", and so on with int,
  /// double and std::string. So `if (value)` throws unless the value is a Bool.
  operator bool();
  operator int();
  operator double();
  operator std::string();
  operator std::string() const;

  /// The number of elements or members. Else "function Json::size value type error", "... empty ..."; a Null is empty.
  int size() const;
  bool empty() const;

  /// Replace the value, whatever it was, by the argument, or by a deep copy of it as it was before the call:
  /// the argument may be a part of this value. A Type stands for an empty value of that kind.
  void set(Type type);
  void set(bool value);
  void set(int value);
  void set(double value);
  void set(const char* value);
  void set(const std::string& value);
  void set(const Json& other);

  Json& operator=(Type type);
  Json& operator=(bool value);
  Json& operator=(int value);
  Json& operator=(double value);
  Json& operator=(const char* value);
  Json& operator=(const std::string& value);
  Json& operator=(const Json& other);
  void copy(const Json& other);

  /// Empties the value and keeps its kind.
  void clear();

  /// The null value that lookups return when they find nothing. Callers do not modify it.
  static const Json& null();

  /// The element; where it is missing, Null elements are added up to it. Null becomes an array.
  /// "function Json::operator [int] requires array value", "function Json::operator [int] index less 0" (a Null is
  /// an array by then).
  Json& operator[](int index);
  /// The member, added as Null where it is missing; Null becomes an object.
  /// "function Json::operator [const std::string &] requires object value".
  Json& operator[](const std::string& key);
  Json& operator[](const char* key);
  Json& operator[](char* key) { return (*this)[static_cast<const char*>(key)]; }

  /// Adds a deep copy at the end and returns this array; Null becomes one. The argument may be a part of it.
  /// "function Json::append requires array value".
  Json& append(const Json& value);

  /// The element or member, or null() where it is missing. For any other kind, a Null included:
  /// "function Json::get [int] requires array value", "function Json::get [const std::string &] requires object value".
  const Json& get(int index) const;
  const Json& get(const std::string& key) const;
  const Json& get(const char* key) const;
  const Json& operator[](int index) const { return get(index); }
  const Json& operator[](const std::string& key) const { return get(key); }
  const Json& operator[](const char* key) const { return get(key); }

  /// Whether there is such an element or member. False as well where the value is no array or object.
  bool has(int index);
  bool has(const std::string& key);
  bool has(const char* key);

  /// Removes the element (those after it move up) or the member. False where there is none.
  bool remove(int index);
  bool remove(const std::string& key);
  bool remove(const char* key);

  /// Scalars of the same kind and value are equal, and so are two Nulls. Arrays and objects never are, not even to
  /// themselves. To compare kinds, compare type().
  bool operator==(const Json& other);
  bool operator==(bool value) { return *this == Json(value); }
  bool operator==(int value) { return *this == Json(value); }
  bool operator==(double value) { return *this == Json(value); }
  bool operator==(const char* value) { return *this == Json(value); }
  bool operator==(const std::string& value) { return *this == Json(value); }
  bool operator==(Type) = delete;
  // Without these two, C++20 would find the first one and its reverse equally good.
  bool operator==(Json& other) { return *this == static_cast<const Json&>(other); }
  bool operator==(Json&& other) { return *this == static_cast<const Json&>(other); }

  bool operator!=(const Json& other) { return !(*this == other); }
  bool operator!=(bool value) { return !(*this == value); }
  bool operator!=(int value) { return !(*this == value); }
  bool operator!=(double value) { return !(*this == value); }
  bool operator!=(const char* value) { return !(*this == value); }
  bool operator!=(const std::string& value) { return !(*this == value); }
  bool operator!=(Type) = delete;

  /// Compact text: members sorted by key, nothing escaped, doubles with six significant digits, or as inf and nan,
  /// numbers as the global locale has them. So not every text is valid JSON.
  std::string toString() const;

  /// Compact text that is valid JSON, whatever the value holds: members sorted by key, strings and keys escaped. Each
  /// byte that is not part of valid UTF-8 becomes U+FFFD, in UTF-8 EF BF BD, so two keys can become alike. Doubles have
  /// the fewest digits that read back as the same double; NaN and infinities are null. The locale has no say.
  std::string toJson() const;

 private:
  struct Copier;
  template <class Format>
  struct Writer;
  Json& take(Json value) noexcept;
  void exchange(Json& other) noexcept;
  bool hasChildren() const { return !m_array.empty() || !m_object.empty(); }
  void copyChildren(const Json& other);
  void copyContainers(const Json& other);
  void releaseChildren() noexcept;
  void releaseDeepChildren() noexcept;
  void growCapacity(std::size_t size);
  bool holds(int index) const;

  Type m_type;
  std::int32_t m_int;
  double m_double;
  bool m_bool;
  std::string m_string;
  std::vector<Json> m_array;
  std::map<std::string, Json> m_object;
};

}  // namespace oxu::json

#endif
