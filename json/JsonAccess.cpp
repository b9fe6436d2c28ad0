#include <algorithm>
#include <string>

#include "json/JsonError.h"
#include "oxu/Json.h"

namespace oxu::json {

Json& Json::operator[](int index) {
  if (m_type == Null) m_type = Array;
  throwUnless(m_type == Array, "function Json::operator [int] requires array value");
  throwUnless(index >= 0, "function Json::operator [int] index less 0");
  const std::size_t position = static_cast<std::size_t>(index);
  if (position >= m_array.size()) {
    growCapacity(position + 1);
    m_array.resize(position + 1);
  }
  return m_array[position];
}

Json& Json::operator[](const std::string& key) {
  if (m_type == Null) m_type = Object;
  throwUnless(m_type == Object, "function Json::operator [const std::string &] requires object value");
  return m_object[key];
}

Json& Json::append(const Json& value) {
  if (m_type == Null) m_type = Array;
  throwUnless(m_type == Array, "function Json::append requires array value");
  if (m_array.size() < m_array.capacity()) {
    m_array.push_back(value);
    return *this;
  }
  // Copied before anything moves: the value may be this array or an element of it.
  Json element(value);
  growCapacity(m_array.size() + 1);
  m_array.emplace_back();
  m_array.back().exchange(element);
  return *this;
}

const Json& Json::get(int index) const {
  throwUnless(m_type == Array, "function Json::get [int] requires array value");
  return holds(index) ? m_array[static_cast<std::size_t>(index)] : null();
}

const Json& Json::get(const std::string& key) const {
  throwUnless(m_type == Object, "function Json::get [const std::string &] requires object value");
  const auto member = m_object.find(key);
  return member != m_object.end() ? member->second : null();
}

// Here and below no kind is tested: what the kind does not select is empty.
bool Json::has(int index) { return holds(index); }

bool Json::has(const std::string& key) { return m_object.count(key) != 0; }

bool Json::remove(int index) {
  if (!holds(index)) return false;
  for (std::size_t i = static_cast<std::size_t>(index); i + 1 < m_array.size(); ++i) {
    m_array[i].exchange(m_array[i + 1]);
  }
  m_array.pop_back();
  return true;
}

bool Json::remove(const std::string& key) { return m_object.erase(key) != 0; }

Json& Json::operator[](const char* key) { return (*this)[textOf(key)]; }
const Json& Json::get(const char* key) const { return get(textOf(key)); }
bool Json::has(const char* key) { return has(textOf(key)); }
bool Json::remove(const char* key) { return remove(textOf(key)); }

bool Json::operator==(const Json& other) {
  if (m_type != other.m_type) return false;
  switch (m_type) {
    case Null:
      return true;
    case Bool:
      return m_bool == other.m_bool;
    case Int:
      return m_int == other.m_int;
    case Double:
      return m_double == other.m_double;
    case String:
      return m_string == other.m_string;
    case Array:
    case Object:
      break;
  }
  return false;
}

// Makes room for `size` elements, at least twice the room of before. A vector that grows by itself would copy
// every element, the class having no move; here they change places with empty ones.
void Json::growCapacity(std::size_t size) {
  if (size <= m_array.capacity()) return;
  std::vector<Json> grown;
  grown.reserve(std::max(size, 2 * m_array.capacity()));
  grown.resize(m_array.size());
  for (std::size_t i = 0; i < m_array.size(); ++i) grown[i].exchange(m_array[i]);
  m_array.swap(grown);
}

bool Json::holds(int index) const { return index >= 0 && static_cast<std::size_t>(index) < m_array.size(); }

}  // namespace oxu::json
