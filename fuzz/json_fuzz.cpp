// Runs operations on a Json and on a plain model of it, and compares the two. Each step of the input is three bytes:
// where in the tree, which operation, and with what argument.
#include <cstdint>
#include <cstdlib>
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

void step(Place place, const Json& root, const Model& rootModel, unsigned operation, unsigned argument) {
  Model& model = *place.model;
  Json& json = *place.json;
  const std::size_t at = argument % 6;
  const int index = static_cast<int>(at);
  const std::string key(1, static_cast<char>('a' + index));
  const bool canBeArray = model.kind == 'n' || model.kind == 'a', canBeObject = model.kind == 'n' || model.kind == 'o';
  const bool isSmall = rootModel.text().size() < 200;
  const Model added = isSmall ? rootModel : Model{'i', index};
  switch (operation % 8) {
    case 0:
      json = index;
      model = {'i', index};
      break;
    case 1:
      if (isSmall) json = root;
      if (!isSmall) json = Json();
      model = isSmall ? Model(rootModel) : Model();
      break;
    case 2:
      check(isRefused([&] { json[index] = index; }) == !canBeArray);
      if (!canBeArray) break;
      model.kind = 'a';
      if (model.elements.size() <= at) model.elements.resize(at + 1);
      model.elements[at] = {'i', index};
      break;
    case 3:
      check(isRefused([&] { json[key]; }) == !canBeObject);
      if (!canBeObject) break;
      model.kind = 'o';
      model.members[key];
      break;
    case 4:
      if (&json == &root && model.kind == 'n') break;  // a Null appended to itself becomes an array first: not modelled
      check(isRefused([&] { isSmall ? json.append(root) : json.append(index); }) == !canBeArray);
      if (!canBeArray) break;
      // A Null becomes an array before the root, which may hold that Null, is copied.
      if (isSmall && model.kind == 'n') {
        model.kind = 'a';
        model.elements.push_back(Model(rootModel));
      } else {
        model.elements.push_back(added);
      }
      model.kind = 'a';
      break;
    case 5:
      check(json.has(index) == (at < model.elements.size()));
      check(json.remove(index) == (at < model.elements.size()));
      if (at < model.elements.size()) model.elements.erase(model.elements.begin() + index);
      break;
    case 6:
      check(json.has(key) == (model.members.count(key) == 1));
      check(json.remove(key) == (model.members.erase(key) == 1));
      break;
    default:
      json.clear();
      model = {model.kind, 0};
  }
}

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
    step(place, json, model, data[i + 1], data[i + 2]);
    check(json.toString() == model.text());
  }
  return 0;
}
