#include "oxu/Json.h"

#include <cstring>
#include <utility>

#include "json/JsonError.h"

namespace oxu::json {

// Copies and destructions recurse this many levels, which is fastest, and reach what lies deeper without recursion. So
// the stack that they need has a bound, whatever the tree.
static constexpr int kMaxRecursion = 32;

// A copy that the host began. The copies of the children find it through their thread.
struct Json::Copier {
  struct Pair {
    const Json* source;
    Json* target;
  };
  static thread_local Copier* current;
  int depth = 0;
  std::vector<Pair> later;  // containers below the last level, whose children are still to be copied

  Copier() { current = this; }
  ~Copier() { current = nullptr; }
  Copier(const Copier&) = delete;
  Copier& operator=(const Copier&) = delete;
};

thread_local Json::Copier* Json::Copier::current = nullptr;

Json::Json() : Json(Null) {}
Json::Json(Type type) : m_type(type), m_int(0), m_double(0), m_bool(false) {}
Json::Json(bool value) : Json(Bool) { m_bool = value; }
Json::Json(int value) : Json(Int) { m_int = value; }
Json::Json(double value) : Json(Double) { m_double = value; }
Json::Json(const char* value) : Json(String) { m_string = textOf(value); }
Json::Json(const std::string& value) : Json(String) { m_string = value; }

Json::Json(const Json& other)
    : m_type(other.m_type),
      m_int(other.m_int),
      m_double(other.m_double),
      m_bool(other.m_bool),
      m_string(other.m_string) {
  if (other.hasChildren()) copyChildren(other);
}

Json::~Json() {
  if (hasChildren()) releaseChildren();
}

bool Json::asBool() const {
  throwUnless(m_type == Bool, "function Json::asBool value type error");
  return m_bool;
}

int Json::asInt() const {
  throwUnless(m_type == Int, "function Json::asInt value type error");
  return m_int;
}

double Json::asDouble() const {
  throwUnless(m_type == Double, "function Json::asDouble value type error");
  return m_double;
}

std::string Json::asString() const {
  throwUnless(m_type == String, "function Json::asString value type error");
  return m_string;
}

Json::operator bool() {
  throwUnless(m_type == Bool, "function Json::operator (bool) requires bool value");
  return m_bool;
}

Json::operator int() {
  throwUnless(m_type == Int, "function Json::operator (int) requires int value");
  return m_int;
}

Json::operator double() {
  throwUnless(m_type == Double, "function Json::operator (double) requires double value");
  return m_double;
}

Json::operator std::string() { return std::as_const(*this).operator std::string(); }

Json::operator std::string() const {
  throwUnless(m_type == String, "function Json::operator (std::string) requires std::string value");
  return m_string;
}

int Json::size() const {
  throwUnless(m_type == Array || m_type == Object, "function Json::size value type error");
  return static_cast<int>(m_array.size() + m_object.size());
}

bool Json::empty() const {
  if (m_type == Null) return true;
  throwUnless(m_type == Array || m_type == Object, "function Json::empty value type error");
  return m_array.empty() && m_object.empty();
}

// Every write of a whole value builds the new one first and then changes places with it: the source may be a part of
// what it replaces, and a failed allocation leaves the value as it was.
Json& Json::take(Json value) noexcept {
  exchange(value);
  return *this;
}

void Json::copy(const Json& other) { take(other); }

void Json::set(Type type) { take(type); }
void Json::set(bool value) { take(value); }
void Json::set(int value) { take(value); }
void Json::set(double value) { take(value); }
void Json::set(const char* value) { take(value); }
void Json::set(const std::string& value) { take(value); }
void Json::set(const Json& other) { take(other); }

// NOLINTBEGIN(misc-unconventional-assign-operator): take returns *this.
Json& Json::operator=(Type type) { return take(type); }
Json& Json::operator=(bool value) { return take(value); }
Json& Json::operator=(int value) { return take(value); }
Json& Json::operator=(double value) { return take(value); }
Json& Json::operator=(const char* value) { return take(value); }
Json& Json::operator=(const std::string& value) { return take(value); }
Json& Json::operator=(const Json& other) { return take(other); }
// NOLINTEND(misc-unconventional-assign-operator)

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

// `this` is new and has no children yet.
void Json::copyChildren(const Json& other) {
  if (Copier* const copier = Copier::current) {
    if (copier->depth == kMaxRecursion) return copier->later.push_back({&other, this});
    ++copier->depth;
    copyContainers(other);
    --copier->depth;
    return;
  }
  Copier copier;
  copyContainers(other);
  while (!copier.later.empty()) {
    const Copier::Pair next = copier.later.back();
    copier.later.pop_back();
    next.target->copyContainers(*next.source);
  }
}

// The containers copy in place, and a swap moves no element: the addresses of those that are left for later hold.
void Json::copyContainers(const Json& other) {
  if (!other.m_array.empty()) std::vector<Json>(other.m_array).swap(m_array);
  if (!other.m_object.empty()) std::map<std::string, Json>(other.m_object).swap(m_object);
}

void Json::releaseChildren() noexcept {
  thread_local int depth = 0;
  if (depth == kMaxRecursion) return releaseDeepChildren();
  ++depth;
  m_array.clear();
  m_object.clear();
  --depth;
}

// Destroys elements and members, deepest first, without recursion and without memory of its own, since a destructor
// must not fail. The way back stands in the nodes: each container on it keeps its parent's address in m_double, which
// means nothing in a container.
void Json::releaseDeepChildren() noexcept {
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
