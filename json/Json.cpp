#include "oxu/Json.h"

#include <cstring>
#include <utility>

#include "json/JsonError.h"

namespace oxu::json {

// A tree is copied node by node from a list of those that are still to do, without recursion. The targets'
// addresses hold: each container has its whole size before its elements are visited.
struct Json::Copier {
  struct Pair {
    const Json* source;
    Json* target;
  };
  std::vector<Pair> todo;

  void visit(const Json& source, Json& target) {
    target.m_type = source.m_type;
    switch (source.m_type) {
      case Null:
        break;
      case Bool:
        target.m_bool = source.m_bool;
        break;
      case Int:
        target.m_int = source.m_int;
        break;
      case Double:
        target.m_double = source.m_double;
        break;
      case String:
        target.m_string = source.m_string;
        break;
      case Array:
      case Object:
        todo.push_back({&source, &target});
        break;
    }
  }

  void copyChildren(const Json& source, Json& target) {
    target.m_array.resize(source.m_array.size());
    for (std::size_t i = 0; i < source.m_array.size(); ++i) visit(source.m_array[i], target.m_array[i]);
    for (const auto& [key, value] : source.m_object) {
      visit(value, target.m_object.try_emplace(target.m_object.end(), key)->second);
    }
  }
};

Json::Json() : Json(Null) {}
Json::Json(Type type) : m_type(type), m_int(0), m_double(0), m_bool(false) {}
Json::Json(bool value) : Json(Bool) { m_bool = value; }
Json::Json(int value) : Json(Int) { m_int = value; }
Json::Json(double value) : Json(Double) { m_double = value; }
Json::Json(const char* value) : Json(String) { m_string = textOf(value); }
Json::Json(const std::string& value) : Json(String) { m_string = value; }

Json::Json(const Json& other) : Json() {
  Copier copier;
  copier.visit(other, *this);
  while (!copier.todo.empty()) {
    const Copier::Pair next = copier.todo.back();
    copier.todo.pop_back();
    copier.copyChildren(*next.source, *next.target);
  }
}

Json::~Json() { releaseChildren(); }

bool Json::asBool() const {
  requireKind(m_type == Bool, "function Json::asBool value type error");
  return m_bool;
}

int Json::asInt() const {
  requireKind(m_type == Int, "function Json::asInt value type error");
  return m_int;
}

double Json::asDouble() const {
  requireKind(m_type == Double, "function Json::asDouble value type error");
  return m_double;
}

std::string Json::asString() const {
  requireKind(m_type == String, "function Json::asString value type error");
  return m_string;
}

Json::operator bool() {
  requireKind(m_type == Bool, "function Json::operator (bool) requires bool value");
  return m_bool;
}

Json::operator int() {
  requireKind(m_type == Int, "function Json::operator (int) requires int value");
  return m_int;
}

Json::operator double() {
  requireKind(m_type == Double, "function Json::operator (double) requires double value");
  return m_double;
}

Json::operator std::string() { return std::as_const(*this).operator std::string(); }

Json::operator std::string() const {
  requireKind(m_type == String, "function Json::operator (std::string) requires std::string value");
  return m_string;
}

int Json::size() const {
  requireKind(m_type == Array || m_type == Object, "function Json::size value type error");
  return static_cast<int>(m_array.size() + m_object.size());
}

bool Json::empty() const {
  if (m_type == Null) return true;
  requireKind(m_type == Array || m_type == Object, "function Json::empty value type error");
  return m_array.empty() && m_object.empty();
}

// Every write of a whole value builds the new one first and then changes places with it: the source may be a part of
// what it replaces, and a failed allocation leaves the value as it was.
void Json::copy(const Json& other) {
  Json temporary(other);
  exchange(temporary);
}

void Json::set(Type type) { copy(Json(type)); }
void Json::set(bool value) { copy(Json(value)); }
void Json::set(int value) { copy(Json(value)); }
void Json::set(double value) { copy(Json(value)); }
void Json::set(const char* value) { copy(Json(value)); }
void Json::set(const std::string& value) { copy(Json(value)); }
void Json::set(const Json& other) { copy(other); }

Json& Json::operator=(Type type) { return *this = Json(type); }
Json& Json::operator=(bool value) { return *this = Json(value); }
Json& Json::operator=(int value) { return *this = Json(value); }
Json& Json::operator=(double value) { return *this = Json(value); }
Json& Json::operator=(const char* value) { return *this = Json(value); }
Json& Json::operator=(const std::string& value) { return *this = Json(value); }

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): copy builds the new value first.
Json& Json::operator=(const Json& other) {
  copy(other);
  return *this;
}

void Json::clear() {
  releaseChildren();
  m_int = 0;
  m_double = 0;
  m_bool = false;
  m_string.clear();
}

const Json& Json::null() {
  static const Json value;
  return value;
}

// Constant time, whatever the two hold.
void Json::exchange(Json& other) noexcept {
  std::swap(m_type, other.m_type);
  std::swap(m_int, other.m_int);
  std::swap(m_double, other.m_double);
  std::swap(m_bool, other.m_bool);
  m_string.swap(other.m_string);
  m_array.swap(other.m_array);
  m_object.swap(other.m_object);
}

// Destroys elements and members, deepest first, without recursion and without memory of its own: a destructor
// must neither overflow the stack nor fail. The way down stands in the nodes themselves, each container on it
// keeping its parent's address in m_double, which means nothing in a container.
void Json::releaseChildren() noexcept {
  constexpr std::size_t kAddressBytes = sizeof(void*);
  static_assert(sizeof m_double == kAddressBytes);
  Json* node = this;
  for (;;) {
    const bool hasElements = !node->m_array.empty();
    if (!hasElements && node->m_object.empty()) {
      if (node == this) return;
      std::memcpy(&node, &node->m_double, kAddressBytes);
      continue;
    }
    Json& child = hasElements ? node->m_array.back() : node->m_object.begin()->second;
    if (!child.m_array.empty() || !child.m_object.empty()) {
      std::memcpy(&child.m_double, &node, kAddressBytes);
      node = &child;
    } else if (hasElements) {
      node->m_array.pop_back();
    } else {
      node->m_object.erase(node->m_object.begin());
    }
  }
}

}  // namespace oxu::json
