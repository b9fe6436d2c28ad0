#include "oxu/Option.h"
#include "oxu/IniFile.h"
#include "tests/support/Test.h"

namespace {

void parse(Option& option, std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  option.parse(static_cast<int>(argv.size()), argv.data());
}

// The words stand between commas. Word 0 becomes one that would be refused if it were looked at.
void parse(Option& option, const std::string& words) {
  std::istringstream line("--" + words);
  std::vector<std::string> arguments;
  for (std::string word; std::getline(line, word, ',');) arguments.push_back(word);
  parse(option, arguments);
}

std::string outcomeOf(const std::function<std::string()>& call) {
  try {
    return call();
  } catch (const std::exception& error) {
    return (dynamic_cast<const std::out_of_range*>(&error) != nullptr ? "range " : "") + std::string(error.what());
  }
}

// Parses with options of all kinds, each name behind its kind's number; word 0 is the kind of the empty name.
// Returns NAME=VALUE; of each option that has an answer then, and the error. Where n has an answer, returns what
// the three getters make of it instead.
std::string recorded(const std::string& words) {
  Option option;
  const std::string names[] = {words.substr(0, 1), "2a=b", "1flag", "2n", "3o", "3opt", "2p", "2port", "1q", "0u",
                               "0undef",           "1v",   "1\xc3"};
  for (const auto& name : names) option.addOption(name.substr(1), static_cast<Option::OptionType>(name[0] - '0'), "");
  const std::string error = outcomeOf([&] { return parse(option, words), ""; });
  std::string answers, value;
  for (const auto& name : names)
    if (option.getOptionValue(name.substr(1), value)) answers += name.substr(1) + "=" + value + ";";
  if (!option.getOptionValue("n", value)) return answers + error;
  errno = EDOM;
  answers = outcomeOf([&] { return std::to_string(option.getInt("n")); }) + ";";
  answers += outcomeOf([&] { return std::to_string(option.getDouble("n")); }) + ";";
  EXPECT_EQ(errno, value == "1e999" ? ERANGE : EDOM);
  return answers + (option.getBool("n") ? "true" : "false");
}

// Cases are WORDS>RESULT, each with a bar behind it.
void expectRecorded(const std::string& cases) {
  std::istringstream text(cases);
  for (std::string words, result; std::getline(text, words, '>') && std::getline(text, result, '|');) {
    EXPECT_EQ(recorded(words), result) << words;
  }
}

TEST(Option, ParseRecordsWhatStandsBeforeTheFirstErrorAndNamesIt) {
  expectRecorded(
      "0>|0,p,=,--port=80,5-,--port=a=b>port=a=b;|0,--port,-5,--p,--,--opt,7>p=--;port=-5;|1,->|0,-vq>q=true;v=true;|"
      "0,-p,5,-o5,-p,6>o=5;p=6;|0,--port=1,--port,,-p,2,-p,,-v>v=true;|0,-o=5,--opt=->o==5;opt=-;|3,--=1,-,2>|"
      "0,-o5,-o,--opt=5,--opt>|0,-verbose,-v>v=true;|0,--flag,--flag>flag=true;|3,--=1,-v>=1;v=true;|2,--=1,-,2>=2;|"
      "0,-vpxuo\xc3q=->q=true;v=true;\xc3=true;|0,-o,-v,-,-q>v=true;Option - is not defined.|"
      "0,--port=1,--port=>port=1;Option --port requires a value.|0,--opt=>Option --opt requires a value.|"
      "0,-v,--port>v=true;Option --port requires a value.|0,-p,1,-p,-5>p=1;Option -p requires a value.|"
      "0,-p5,6>Option -p requires a value.|0,-p>Option -p requires a value.|0,-hv>Option -h is not defined.|"
      "0,--v=1>Option --v does not accept a value.|0,--flag=>Option --flag does not accept a value.|"
      "0,--help>Option --help is not defined.|0,--help=me>Option --help is not defined.|"
      "0,--a=b,c>Option --a is not defined.|0,-->Option -- is not defined.|0,-uv>Option -u is not defined.|"
      "0,--undef=1>Option --undef is not defined.|0,--undef>Option --undef is not defined.|"
      "0,-\xc3\xa9,-\xa9>\xc3=true;Option -\xa9 is not defined.|2,--,-v,->=-v;Option - requires a value.|"
      "1,--,--=>=true;Option -- does not accept a value.|");
}

TEST(Option, KeepsTheArgumentsOfTheLatestParseThatBelongToNoOption) {
  using Words = std::vector<std::string>;
  Option option;
  option.addOption("p", Option::RequiredValue, "");
  option.addOption("o", Option::OptionalValue, "");
  option.addOption("v", Option::NoValue, "");
  const struct {
    Words words, arguments;
    const char* error;
  } rows[] = {
      {{"host", "b", "-v", "a", "=", "--v", "b"}, {"b", "a", "=", "b"}, ""},
      {{"host", "-p", "1", "c", "--p", "2", "--p=3", "d"}, {"c", "d"}, ""},
      {{"host", "-o", "e", "-o5", "f", "--o", "g", "--o=6"}, {"e", "f", "g"}, ""},
      {{"host", "h", "--none", "i"}, {"h"}, "Option --none is not defined."},
      {{"host", "j", "-p", "-v", "k"}, {"j"}, "Option -p requires a value."},
      {{"host", "--p="}, {}, "Option --p requires a value."},
      {{"host", "l", "m"}, {"l", "m"}, ""},
      {{"host"}, {}, ""},
      {{"host", "n"}, {"n"}, ""},
      {{}, {}, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(outcomeOf([&] { return parse(option, row.words), ""; }), row.error);
    EXPECT_EQ(option.arguments(), row.arguments);
  }
  EXPECT_THROW(parse(option, Words{"host", "command", "o", "", "p"}), std::out_of_range);
  EXPECT_EQ(option.arguments(), (Words{"command", "o"}));
}

// As a host with commands does, which have arguments of their own.
TEST(Option, ParsesItsOwnArgumentsAgain) {
  Option option;
  parse(option, std::vector<std::string>{"host", "command", "file", std::string(100, 'x')});
  const std::vector<std::string> expected = {"file", std::string(100, 'x')};
  std::vector<char*> argv;
  for (const std::string& argument : option.arguments()) argv.push_back(const_cast<char*>(argument.data()));
  option.parse(static_cast<int>(argv.size()), argv.data());
  EXPECT_EQ(option.arguments(), expected);
}

TEST(Option, GettersConvertAValueAndLeaveErrnoAlone) {
  expectRecorded(
      "0,--n=42>42;42.000000;false|0,--n=1>1;1.000000;true|0,--n=true>stoi;stod;true|0,--n=TRUE>stoi;stod;false|"
      "0,--n,-2147483649>range stoi;-2147483649.000000;false|0,--n=2147483647>2147483647;2147483647.000000;false|"
      "0,--n= \t-12abc>-12;-12.000000;false|0,--n=0x1p4>0;16.000000;false|0,--n=1e999>1;range stod;false|");
}

TEST(Option, ListsItsOptionsInByteOrderAndReportsWhatIsNotFound) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  std::ostringstream usage;
  std::streambuf* const console = std::cout.rdbuf(usage.rdbuf());
  Option option;
  option.addOption("\xff", Option::Undefined, "end");
  option.addOption("port", Option::RequiredValue, "on");
  option.addOption("port", Option::NoValue, "again");
  option.addOption("p", Option::OptionalValue, "");
  option.addOption("Z", Option::NoValue, "flag");
  option.printUsage();
  EXPECT_TRUE(option.type("port") == Option::RequiredValue && option.type("P") == 0 && !option.hasOption("P"));
  EXPECT_TRUE(option.getString("x").empty() && option.getString("Z").empty() && option.hasOption("\xff"));
  EXPECT_TRUE(option.getInt("port") == 0 && option.getDouble("p") == 0.0 && !option.getBool(""));
  std::string value = "kept";
  EXPECT_THROW(parse(option, ",-Z,,--port=1"), std::out_of_range);
  EXPECT_TRUE(option.getBool("Z") && !option.getOptionValue("port", value) && value == "kept");
  EXPECT_THROW(parse(option, ",--p="), std::runtime_error);
  std::cout.rdbuf(console);
  std::fflush(stdout);
  EXPECT_EQ(output.text(),
            "Option x not found\nOption Z not found\nOption port not found\nOption p not found\nOption  not found\n");
  EXPECT_EQ(usage.str(),
            "Usage:  [options]\nOptions:\n  -Z   flag\n  -p <value>  \n  -port <value>  on\n  -\xff <value>  end\n");
}

// A standard output whose reader has gone is a failed write, for the INI reader as well.
TEST(Option, SurvivesAStandardOutputWhoseReaderHasGone) {
  EXPECT_TRUE(support::holdsWithPipe([](int readEnd) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    ::close(readEnd);
    const Option option;
    IniFile file;
    errno = 0;
    return option.getString("none").empty() && errno == 0 && !file.load("/none/none") &&
           (option.printUsage(), file.show(), true);
  }));
}

}  // namespace
