#include "oxu/Option.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "oxu/IniFile.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"

namespace {

using Words = std::vector<std::string>;
using Answers = std::map<std::string, std::string>;

// Parses the words after a program name that parse would refuse if it looked at it.
void parse(Option& option, Words words) {
  words.insert(words.begin(), "--program");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  option.parse(static_cast<int>(argv.size()), argv.data());
}

// What the call returns, or the text of what it throws.
std::string outcomeOf(const std::function<std::string()>& call) {
  try {
    return call();
  } catch (const std::out_of_range& error) {
    return std::string("out of range: ") + error.what();
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST(Option, ParseRecordsWhatStandsBeforeTheFirstErrorAndNamesIt) {
  const struct {
    Words words;
    Answers answers;
    std::string error;
    Words arguments = {};
    Option::OptionType kindOfEmptyName = Option::Undefined;
  } rows[] = {
      {{"a", "=", "--port=80", "5-"}, {{"port", "80"}}, "", {"a", "=", "5-"}},
      {{"--port=1", "--port=a=b"}, {{"port", "a=b"}}, ""},
      {{"--port", "-5", "--p", "--"}, {{"port", "-5"}, {"p", "--"}}, ""},
      {{"-p", "5", "6", "-p", "7"}, {{"p", "7"}}, "", {"6"}},
      {{"-o=5", "--opt=-"}, {{"o", "=5"}, {"opt", "-"}}, ""},
      {{"-vq", "w", "--flag"}, {{"v", "true"}, {"q", "true"}, {"flag", "true"}}, "", {"w"}},
      // In a group, only the bytes that name flags count.
      {{"-vpxuo\xc3-"}, {{"v", "true"}, {"\xc3", "true"}}, ""},
      {{"--port=1", "--port", "", "-p", "2", "-p", ""}, {}, ""},
      {{"-o5", "-o", "--opt=5", "--opt", "7"}, {}, "", {"7"}},
      {{"--port=80", "-v", "a", "-", "-q"}, {{"port", "80"}, {"v", "true"}}, "Option - is not defined.", {"a"}},
      {{"--"}, {}, "Option -- is not defined."},
      {{"-\xa9"}, {}, "Option -\xa9 is not defined."},
      {{"--help"}, {}, "Option --help is not defined."},
      {{"--undef=1"}, {}, "Option --undef is not defined."},
      {{"--a=b", "c"}, {}, "Option --a is not defined."},
      {{"--flag="}, {}, "Option --flag does not accept a value."},
      {{"--port=1", "--port="}, {{"port", "1"}}, "Option --port requires a value."},
      {{"--port"}, {}, "Option --port requires a value."},
      {{"-p"}, {}, "Option -p requires a value."},
      {{"-p5", "6"}, {}, "Option -p requires a value."},
      {{"-p", "1", "-p", "-5"}, {{"p", "1"}}, "Option -p requires a value."},
      {{"-"}, {}, "", {}, Option::NoValue},
      {{"--", "--="}, {{"", "true"}}, "Option -- does not accept a value.", {}, Option::NoValue},
      {{"-", "2"}, {{"", "2"}}, "", {}, Option::RequiredValue},
      {{"--=1", "-", "2"}, {}, "", {"2"}, Option::OptionalValue},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.words));
    Option option;
    option.addOption("", row.kindOfEmptyName, "");
    for (const char* name : {"v", "q", "flag", "\xc3"}) option.addOption(name, Option::NoValue, "");
    for (const char* name : {"p", "port", "a=b"}) option.addOption(name, Option::RequiredValue, "");
    for (const char* name : {"o", "opt"}) option.addOption(name, Option::OptionalValue, "");
    for (const char* name : {"u", "undef"}) option.addOption(name, Option::Undefined, "");
    const auto parseWords = [&] {
      parse(option, row.words);
      return "";
    };
    EXPECT_EQ(outcomeOf(parseWords), row.error);
    EXPECT_EQ(option.arguments(), row.arguments);
    Answers answers;
    for (const char* name : {"", "v", "q", "flag", "\xc3", "p", "port", "a=b", "o", "opt", "u", "undef"}) {
      std::string value;
      if (option.getOptionValue(name, value)) answers[name] = value;
    }
    EXPECT_EQ(answers, row.answers);
  }
}

// A host with commands parses the arguments that are left over once more.
TEST(Option, ParseMayReadTheArgumentsThatItReplaces) {
  const std::string file(100, 'f');  // too long for a string's own buffer
  Option option;
  parse(option, {"command", file});
  std::vector<char*> argv;
  for (const std::string& argument : option.arguments()) argv.push_back(const_cast<char*>(argument.data()));
  option.parse(static_cast<int>(argv.size()), argv.data());
  EXPECT_EQ(option.arguments(), Words{file});
  EXPECT_THROW(parse(option, {"a", "", "b"}), std::out_of_range);
  EXPECT_EQ(option.arguments(), Words{"a"});
  option.parse(0, nullptr);
  EXPECT_EQ(option.arguments(), Words{});
}

TEST(Option, GettersConvertTheStartOfTheValue) {
  const struct {
    std::string value, asInt, asDouble;
    bool asBool;
  } rows[] = {
      {"1", "1", "1.000000", true},
      {"true", "stoi", "stod", true},
      {"TRUE", "stoi", "stod", false},
      {"-2147483649", "out of range: stoi", "-2147483649.000000", false},
      {"2147483647", "2147483647", "2147483647.000000", false},
      {" \t-12abc", "-12", "-12.000000", false},
      {"0x1p4", "0", "16.000000", false},
      {"1e999", "1", "out of range: stod", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    Option option;
    option.addOption("n", Option::RequiredValue, "");
    parse(option, {"--n", row.value});
    EXPECT_EQ(outcomeOf([&] { return std::to_string(option.getInt("n")); }), row.asInt);
    EXPECT_EQ(outcomeOf([&] { return std::to_string(option.getDouble("n")); }), row.asDouble);
    EXPECT_EQ(option.getBool("n"), row.asBool);
  }
}

TEST(Option, KeepsTheFirstRegistrationOfANameAndReportsWhatIsNotFound) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  Option option;
  option.addOption("port", Option::RequiredValue, "");
  option.addOption("port", Option::NoValue, "");
  EXPECT_EQ(option.type("port"), Option::RequiredValue);
  EXPECT_EQ(option.type("Port"), Option::Undefined);
  EXPECT_TRUE(option.hasOption("port"));
  std::string value = "kept";
  EXPECT_FALSE(option.getOptionValue("port", value));
  EXPECT_EQ(value, "kept");
  EXPECT_EQ(option.getString("none"), "");
  EXPECT_EQ(option.getInt("port"), 0);
  EXPECT_EQ(option.getDouble("port"), 0.0);
  EXPECT_FALSE(option.getBool(""));
  std::fflush(stdout);
  EXPECT_EQ(output.text(), "Option none not found\nOption port not found\nOption port not found\nOption  not found\n");
}

TEST(Option, PrintsUsageOrderedByTheBytesOfNames) {
  Option option;
  option.addOption("\xff", Option::Undefined, "end");
  option.addOption("port", Option::RequiredValue, "on");
  option.addOption("p", Option::OptionalValue, "");
  option.addOption("Z", Option::NoValue, "flag");
  const support::DescriptorCapture output(STDOUT_FILENO);
  option.printUsage();
  std::cout.flush();
  EXPECT_EQ(output.text(),
            "Usage:  [options]\nOptions:\n  -Z   flag\n  -p <value>  \n  -port <value>  on\n  -\xff <value>  end\n");
}

// Printing to a standard output without a reader fails quietly. IniFile prints in the same way.
TEST(Option, SurvivesAStandardOutputWhoseReaderHasGone) {
  support::inChildWithPipe([](int readEnd) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    ::close(readEnd);
    errno = 0;
    EXPECT_EQ(Option().getString("none"), "");
    EXPECT_EQ(errno, 0);
    Option().printUsage();
    IniFile file;
    EXPECT_FALSE(file.load("/none/none"));
    file.show();
  });
}

}  // namespace
