#include "config/LineReader.h"
#include "oxu/IniFile.h"
#include "tests/support/Test.h"

namespace {

using namespace std::string_literals;

// The text of the table that a file of these bytes gives; a signal interrupts its first read.
std::string loaded(const std::string& bytes) {
  const int fd = ::memfd_create("ini", MFD_CLOEXEC);
  EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  IniFile ini;
  const faults::Fault interrupted(faults::kRead, EINTR, 1);
  EXPECT_TRUE(ini.load("/proc/self/fd/" + std::to_string(fd)));
  ::close(fd);
  return ini.str();
}

// Each row is a file and behind the bar the text of its table, with a slash for every line feed.
TEST(IniFile, ReadsWhatItsSyntaxAllowsAndSkipsTheRest) {
  std::istringstream rows(
      "[net]\r/x = 1\r/[Net]\r/x = 2\r/|[Net]/x=2//[net]/x=1//\n[a]/x=1/[b]/y=2/[a]/z=3/|[a]/z=3//[b]/y=2//\n|\n"
      "a=1/\xff=4/_=3/B=2/ab=5|[]/B=2/_=3/a=1/ab=5/\xff=4//\nx=1/[ ]/[a]/y=2/[]/z=3|[]/z=3//[a]/y=2//\n[a]]|[a]//\n"
      "\fk\f= \0v\0 \r\v|[]/\fk\f=\0v\0//\nx=1/[a]/y=2/|[]/x=1//[a]/y=2//\n\xef\xbb\xbf[s]/x=1|[]/x=1//\n"
      "[s]/just-a-word//#k=v|[s]//\n \t#[x]/\v[a]/b=c|[a]/b=c//\n[s]/[a#b]/k=1|[s]/k=1//\n# only/\r/  #comments|\n"
      "k = 'x y'|[]/k='x y'//\n[s]/[a/k=1|[s]/k=1//\nk = v #note|[]/k=v//\nk = a=b|[]/k=a=b//\nk=1/ k =2|[]/k=2//\n"
      "[[a] #note|[[a]//\nk=\r/=|[]/=/k=//\n[ net ]|[net]//\n;k=v|[]/;k=v//\n[a]b=c|[a]//\n=v|[]/=v//"s);
  for (std::string row; std::getline(rows, row);) {
    for (char& byte : row) byte = byte == '/' ? '\n' : byte;
    EXPECT_EQ(loaded(row.substr(0, row.find('|'))), row.substr(row.find('|') + 1));
  }
}

// Each row is a value, and behind bars the integer, the floating-point number and the truth value that it is;
// the last of them with true and with false for the default.
TEST(IniFile, ConvertsWhateverAPresentKeyHolds) {
  std::istringstream rows(
      "2147483648|-2147483648|2.14748e+09|00\n-9999999999999999999|0|-1e+19|00\n9999999999999999999|-1|1e+19|00\n"
      "4294967297|1|4.29497e+09|00\n42abc|42|42|00\n1e999|1|inf|00\n+010|10|10|00\n2.5e1|2|25|00\n -7|-7|-7|00\n"
      "0x1F|0|31|00\n3.9|3|3.9|00\ntrue1|0|0|00\n.5|0|0.5|00\nTrUe|0|0|11\n1\0|1|1|00\nyes|0|0|00\n1|1|1|11\n|0|0|00"s);
  IniFile ini;
  for (std::string row; std::getline(rows, row);) {
    ini["s"]["k"] = row.substr(0, row.find('|'));
    std::ostringstream converted;
    errno = 0;
    converted << ini.getString("s", "k", "d") << '|' << ini.getInt("s", "k", 5) << '|' << ini.getDouble("s", "k", 5.0)
              << '|' << ini.getBool("s", "k", true) << ini.getBool("s", "k", false);
    EXPECT_TRUE(converted.str() == row && errno == 0) << converted.str() << " for " << row;
  }
}

TEST(IniFile, LookupsCreateNothingAndTheIndexOperatorDoes) {
  IniFile ini;
  for (const std::string text : {"", "[s]\n\n"}) {
    EXPECT_TRUE(ini.getString("s", "k", " d ") == " d " && ini.getInt("s", "k", -3) == -3 && !ini.has("s", "k"));
    EXPECT_TRUE(ini.getDouble("s", "k", 0.1) == 0.1 && ini.getBool("s", "k", true) && !ini.getBool("s", "k", false));
    EXPECT_TRUE(ini.has("s") == !text.empty() && !ini.has("S") && ini.str() == text && ini["s"].empty());
  }
  const IniFile copy = ini;
  ini["s"] = {{"a", " # "}, {"", ""}};
  EXPECT_TRUE(ini.has("s", "") && ini.str() == "[s]\n=\na= # \n\n" && copy.str() == "[s]\n\n");
}

TEST(IniFile, ListsItsSectionsByTheirBytes) {
  IniFile ini;
  EXPECT_TRUE(ini.sections().empty());
  for (const std::string name : {"b", "\xff", "", "a b", "B"}) ini[name];
  EXPECT_EQ(ini.sections(), (std::vector<std::string>{"", "B", "a b", "b", "\xff"}));
  EXPECT_TRUE(ini.load("/dev/null") && ini.sections().empty());
}

// The path is a value of the table that is discarded. The width is for what the host itself prints next.
TEST(IniFile, ReplacesTheTableEvenByNothingAndShowsIt) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  IniFile ini;
  std::cout.width(9);
  for (const auto& path : {"no/such file", "/proc/self"}) {
    ini["s"]["k"] = path;
    ini.show();
    EXPECT_EQ(ini.load(ini["s"]["k"]), path[0] == '/');
    ini.show();
  }
  std::cout << "end" << std::flush;
  EXPECT_EQ(output.text(), "[s]\nk=no/such file\n\nFailed to open file no/such file\n[s]\nk=/proc/self\n\n      end");
}

// Whether the thread waits in its second read already or is yet to call it, the last line stays cut.
TEST(IniFile, KeepsTheLinesBeforeAReadError) {
  int fds[2], unread = 1;
  IniFile ini;
  ASSERT_EQ(::pipe(fds), 0);
  std::thread loader([&] { EXPECT_TRUE(ini.load("/proc/self/fd/" + std::to_string(fds[0]))); });
  EXPECT_EQ(::write(fds[1], "x=1\ny=2", 7), 7);
  EXPECT_TRUE(support::eventually([&] { return ::ioctl(fds[0], FIONREAD, &unread) == 0 && unread == 0; }));
  const faults::Fault fault(faults::kRead, EIO);
  EXPECT_EQ(::write(fds[1], "3", 1), 1);
  loader.join();
  EXPECT_EQ(ini.str(), "[]\nx=1\n\n");
  for (const int fd : fds) ::close(fd);
}

// Step by step and with copies; the table itself is the library's.
std::string modelled(std::istringstream file) {
  const auto stripped = [](std::string text) {
    return text.erase(0, text.find_first_not_of(" \t\n\r\v")).erase(text.find_last_not_of(" \t\n\r\v") + 1);
  };
  IniFile table;
  for (std::string line, section; std::getline(file, line);) {
    line = stripped(line).substr(0, stripped(line).find('#'));
    const std::size_t close = line.find(']'), equals = line.find('=');
    if (line[0] == '[' && close != std::string::npos) table[section = stripped(line.substr(1, close - 1))].clear();
    if (line[0] == '[' || equals == std::string::npos) continue;
    table[section][stripped(line.substr(0, equals))] = stripped(line.substr(equals + 1));
  }
  return table.str();
}

// Now and then the soup follows a run of one byte that ends around the end of a block, be it one line or many.
TEST(IniFile, AgreesWithANaiveReaderOnLineSoupOfAnyLength) {
  const std::string soup = "\n\n\n[[]]====## \t\r\v\f\0abB\xff"s;
  std::mt19937 dice(20240607);
  for (int round = 0; round < 4000; ++round) {
    std::string file(round % 40 ? 0 : (oxu::LineReader::kBlockBytes << dice() % 2) - dice() % 30, soup[dice() % 20]);
    for (std::size_t size = dice() % 60; size > 0; --size) file += soup[dice() % soup.size()];
    const std::string text = loaded(file);
    ASSERT_TRUE(text == modelled(std::istringstream(file)) && text == loaded(text)) << round;
  }
}

}  // namespace
