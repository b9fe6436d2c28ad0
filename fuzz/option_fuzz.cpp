// Parses any argument vector with a fixed set of options. parse throws only what its header lists, and records only
// what the vector holds.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "oxu/Option.h"

namespace {

using Words = std::vector<std::string>;

const Words kFlags = {"v", "q", "=", "\xff", "flag"};
const Words kWithRequiredValue = {"p", "port"};
const Words kWithOptionalValue = {"", "o", "opt", "a=b"};

void check(bool holds) {
  if (!holds) std::abort();
}

Words splitAtNulBytes(const std::string& input) {
  Words words;
  for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
    end = input.find('\0', begin);
    words.push_back(input.substr(begin, end - begin));
  }
  return words;
}

void parse(Option& option, Words words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  try {
    option.parse(static_cast<int>(argv.size()), argv.data());
  } catch (const std::runtime_error& error) {
    check(std::string(error.what()).rfind("Option -", 0) == 0);
  } catch (const std::out_of_range&) {
    check(std::find(words.begin() + 1, words.end(), "") != words.end());
  }
}

// A value is a whole argument, or the end of one, behind "=" or a short name.
void checkValue(const std::string& value, const Words& words) {
  const auto endsWithValue = [&](const std::string& word) {
    return word.size() >= value.size() && word.compare(word.size() - value.size(), value.size(), value) == 0;
  };
  check(!value.empty() && std::any_of(words.begin() + 1, words.end(), endsWithValue));
}

// An argument that gives a flag begins with a dash and holds the flag's name.
void checkFlag(const std::string& name, const std::string& value, const Words& words) {
  const auto givesFlag = [&](const std::string& word) { return word[0] == '-' && word.find(name, 1) < word.size(); };
  check(value == "true" && std::any_of(words.begin() + 1, words.end(), givesFlag));
}

// The arguments stand in the vector in the same order, and none of them looks like an option.
void checkArguments(const Words& arguments, const Words& words) {
  auto next = words.begin() + 1;
  for (const std::string& argument : arguments) {
    check(!argument.empty() && argument[0] != '-');
    next = std::find(next, words.end(), argument);
    check(next++ != words.end());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Words words = splitAtNulBytes(std::string(reinterpret_cast<const char*>(data), size));
  Option option;
  for (const std::string& name : kFlags) option.addOption(name, Option::NoValue, "");
  for (const std::string& name : kWithRequiredValue) option.addOption(name, Option::RequiredValue, "");
  for (const std::string& name : kWithOptionalValue) option.addOption(name, Option::OptionalValue, "");
  parse(option, words);
  checkArguments(option.arguments(), words);

  std::string value;
  for (const std::string& name : kFlags) {
    if (option.getOptionValue(name, value)) checkFlag(name, value, words);
  }
  for (const Words& names : {kWithRequiredValue, kWithOptionalValue}) {
    for (const std::string& name : names) {
      if (option.getOptionValue(name, value)) checkValue(value, words);
    }
  }
  return 0;
}
