#include "oxu/Option.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "os/os_print.h"
#include "os/os_signal.h"

namespace {

// The value of a flag that was given. An absent flag has the empty value, like any other option.
const char* const kFlagValue = "true";

const char* const kNotDefined = " is not defined.";
const char* const kNoValueAccepted = " does not accept a value.";
const char* const kValueRequired = " requires a value.";

[[noreturn]] void fail(const char* dashes, const std::string& name, const char* problem) {
  throw std::runtime_error("Option " + (dashes + name) + problem);
}

}  // namespace

// The arguments that parse has not looked at yet.
struct Option::Arguments {
  char** next;
  char** end;

  bool empty() const { return next == end; }
  std::string take() { return *next++; }
};

void Option::addOption(const std::string& name, OptionType type, const std::string& description) {
  m_options.emplace(name, OptionProperty{type, name, "", description});
}

void Option::parse(int argc, char** argv) {
  // argv may point into the arguments of the previous parse, so those live until the end of this parse.
  const std::vector<std::string> previous = std::exchange(m_arguments, {});
  if (argc < 2) return;
  Arguments rest{argv + 1, argv + argc};
  while (!rest.empty()) {
    const std::string argument = rest.take();
    // at() throws for an empty argument.
    if (argument.at(0) != '-') {
      m_arguments.push_back(argument);
    } else if (argument.compare(0, 2, "--") == 0) {
      parseLong(argument.substr(2), rest);
    } else {
      parseShort(argument.substr(1), rest);
    }
  }
}

void Option::parseLong(const std::string& body, Arguments& rest) {
  const std::size_t equals = body.find('=');
  if (equals == std::string::npos) {
    parseLongAlone(body, rest);
  } else {
    parseLongWithValue(body.substr(0, equals), body.substr(equals + 1));
  }
}

void Option::parseLongWithValue(const std::string& name, const std::string& value) {
  const OptionType kind = type(name);
  if (kind == Undefined) fail("--", name, kNotDefined);
  if (kind == NoValue) fail("--", name, kNoValueAccepted);
  if (value.empty()) fail("--", name, kValueRequired);
  record(name, value);
}

void Option::parseLongAlone(const std::string& name, Arguments& rest) {
  switch (type(name)) {
    case Undefined:
      fail("--", name, kNotDefined);
    case NoValue:
      return record(name, kFlagValue);
    case RequiredValue:
      // The value may begin with a dash, so that negative numbers need no "=".
      if (rest.empty()) fail("--", name, kValueRequired);
      return record(name, rest.take());
    case OptionalValue:
      return record(name, "");
  }
}

void Option::parseShort(const std::string& body, Arguments& rest) {
  // One byte; none where the argument is a lone dash.
  const std::string name = body.substr(0, 1);
  switch (type(name)) {
    case Undefined:
      fail("-", name, kNotDefined);
    case NoValue:
      return recordFlags(body);
    case RequiredValue:
      // A leading dash more likely begins the next option. Attached text is more likely a long form with one dash.
      if (body != name || rest.empty() || **rest.next == '-') fail("-", name, kValueRequired);
      return record(name, rest.take());
    case OptionalValue:
      return record(name, body.substr(name.size()));
  }
}

void Option::recordFlags(const std::string& characters) {
  for (const char character : characters) {
    const std::string name(1, character);
    if (type(name) == NoValue) record(name, kFlagValue);
  }
}

void Option::record(const std::string& name, const std::string& value) { m_options.at(name).value = value; }

const std::vector<std::string>& Option::arguments() const { return m_arguments; }

Option::OptionType Option::type(const std::string& name) const {
  const auto found = m_options.find(name);
  return found == m_options.end() ? Undefined : found->second.type;
}

bool Option::hasOption(const std::string& name) const { return m_options.count(name) != 0; }

bool Option::getOptionValue(const std::string& name, std::string& value) const {
  const auto found = m_options.find(name);
  if (found == m_options.end() || found->second.value.empty()) return false;
  value = found->second.value;
  return true;
}

std::string Option::getString(const std::string& name) const {
  std::string value;
  if (getOptionValue(name, value)) return value;
  os_print(stdout, "Option %s not found\n", name.c_str());
  return value;
}

// std::stoi and std::stod leave errno as it was, unless the number is out of range.
int Option::getInt(const std::string& name) const {
  const std::string text = getString(name);
  return text.empty() ? 0 : std::stoi(text);
}

double Option::getDouble(const std::string& name) const {
  const std::string text = getString(name);
  return text.empty() ? 0.0 : std::stod(text);
}

bool Option::getBool(const std::string& name) const {
  const std::string text = getString(name);
  return text == "true" || text == "1";
}

void Option::printUsage() const {
  const os_signal_pipe_guard noSigpipe;
  const std::ios_base::Init streams;  // a static object of the host may print before this file's streams are set up
  std::cout << "Usage:  [options]\nOptions:\n";
  for (const auto& [name, option] : m_options) {
    std::cout << "  -" << name << " " << (option.type == NoValue ? "  " : "<value>  ") << option.description << "\n";
  }
}
