// Runs operations on a Json and on a plain model of it, and compares the two. Each step of the input is three bytes:
// where in the tree, which operation, and with what argument.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "oxu/Json.h"

namespace {

using oxu::json::Json;

void check(bool holds) {
  if (!holds) std::abort();
}

struct Model {
  char kind = 'n';  // n null, i int, a array, o object
  int number = 0;
  std::vector<Model> elements = {};
  std::map<std::string, Model> members = {};

  std::string text() const {
    if (kind == 'n') return "null";
    if (kind == 'i') return std::to_string(number);
    std::string text;
    for (const Model& element : elements) text += (text.empty() ? "" : ",") + element.text();
    for (const auto& [key, value] : members) text += (text.empty() ? "\"" : ",\"") + key + "\":" + value.text();
    return kind == 'a' ? "[" + text + "]" : "{" + text + "}";
  }
};

// The same place in the Json and in the model.
struct Place {
  Json* json;
  Model* model;

  // Goes down into the child that `pick` names, where there is one.
  void descend(std::size_t pick) {
    if (!model->elements.empty()) {
      pick %= model->elements.size();
      json = &(*json)[static_cast<int>(pick)];
      model = &model->elements[pick];
    } else if (!model->members.empty()) {
      const auto member = std::next(model->members.begin(), static_cast<long>(pick % model->members.size()));
      json = &(*json)[member->first];
      model = &member->second;
    }
  }
};

// Whether the operation throws, as it must for a kind that it does not accept.
template <class Operation>
bool isRefused(Operation operation) {
  try {
    operation();
  } catch (const std::logic_error&) {
    return true;
  }
  return false;
}

// One operation on both trees. A large root is not copied into itself: null or a number takes its place.
class Step {
 public:
  Step(Place place, const Json& root, const Model& rootModel, unsigned argument)
      : m_json(*place.json),
        m_model(*place.model),
        m_root(root),
        m_root_model(rootModel),
        m_at(argument % 6),
        m_index(static_cast<int>(m_at)),
        m_key(1, static_cast<char>('a' + m_index)),
        m_is_root_small(rootModel.text().size() < 200) {}

  void run(unsigned operation) {
    switch (operation % 8) {
      case 0:
        return assignNumber();
      case 1:
        return m_is_root_small ? assignRoot() : assignNull();
      case 2:
        return setElement();
      case 3:
        return addMember();
      case 4:
        return append();
      case 5:
        return removeElement();
      case 6:
        return removeMember();
      default:
        return clear();
    }
  }

 private:
  bool isOneOf(const char* kinds) const { return std::strchr(kinds, m_model.kind) != nullptr; }

  void assignNumber() {
    m_json = m_index;
    m_model = {'i', m_index};
  }

  void assignRoot() {
    m_json = m_root;
    m_model = Model(m_root_model);
  }

  void assignNull() {
    m_json = Json();
    m_model = Model();
  }

  void setElement() {
    check(isRefused([&] { m_json[m_index] = m_index; }) == !isOneOf("na"));
    if (!isOneOf("na")) return;
    m_model.kind = 'a';
    if (m_model.elements.size() <= m_at) m_model.elements.resize(m_at + 1);
    m_model.elements[m_at] = {'i', m_index};
  }

  void addMember() {
    check(isRefused([&] { m_json[m_key]; }) == !isOneOf("no"));
    if (!isOneOf("no")) return;
    m_model.kind = 'o';
    m_model.members[m_key];
  }

  void append() {
    if (&m_json == &m_root && m_model.kind == 'n') return;  // becomes an array before it is copied: not modelled
    check(isRefused([&] { m_is_root_small ? m_json.append(m_root) : m_json.append(m_index); }) == !isOneOf("na"));
    if (!isOneOf("na")) return;
    // A Null becomes an array before the root, which may hold that Null, is copied.
    m_model.kind = 'a';
    m_model.elements.push_back(m_is_root_small ? Model(m_root_model) : Model{'i', m_index});
  }

  void removeElement() {
    const bool isThere = m_at < m_model.elements.size();
    check(m_json.has(m_index) == isThere);
    check(m_json.remove(m_index) == isThere);
    if (isThere) m_model.elements.erase(m_model.elements.begin() + m_index);
  }

  void removeMember() {
    check(m_json.has(m_key) == (m_model.members.count(m_key) == 1));
    check(m_json.remove(m_key) == (m_model.members.erase(m_key) == 1));
  }

  void clear() {
    m_json.clear();
    m_model = {m_model.kind, 0};
  }

  Json& m_json;
  Model& m_model;
  const Json& m_root;
  const Model& m_root_model;
  const std::size_t m_at;
  const int m_index;
  const std::string m_key;
  const bool m_is_root_small;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Json json;
  Model model;
  for (std::size_t i = 0; i + 2 < size; i += 3) {
    if (model.kind == 'i') {
      json = Json();
      model = {};
    }
    Place place{&json, &model};
    for (unsigned path = data[i]; path != 0; path >>= 2) place.descend(path & 3);
    Step(place, json, model, data[i + 2]).run(data[i + 1]);
    check(json.toString() == model.text());
  }
  return 0;
}
