#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <limits>
#include <string>
#include <thread>

#include "config/LineReader.h"
#include "oxu/IniFile.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

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

TEST(IniFile, GettersConvertAPresentValueWhateverItsText) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    std::string value;
    int asInt;
    double asDouble;
    bool asBool;
  } rows[] = {
      {"4294967297", 1, 4294967297.0, false},
      {"-9999999999999999999", 0, -1e19, false},
      {"1e999", 1, kInfinity, false},
      {"0x1F", 0, 31.0, false},
      {" -7abc", -7, -7.0, false},
      {"1\0"s, 1, 1.0, false},
      {"1", 1, 1.0, true},
      {"TrUe", 0, 0.0, true},
      {"true1", 0, 0.0, false},
      {"", 0, 0.0, false},
  };
  IniFile ini;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    ini["s"]["k"] = row.value;
    errno = EPERM;
    EXPECT_EQ(ini.getString("s", "k", "default"), row.value);
    EXPECT_EQ(ini.getInt("s", "k", 5), row.asInt);
    EXPECT_EQ(ini.getDouble("s", "k", 5.0), row.asDouble);
    EXPECT_EQ(ini.getBool("s", "k", !row.asBool), row.asBool);
    EXPECT_EQ(errno, EPERM);
  }
}

TEST(IniFile, LookupsCreateNothingAndTheIndexOperatorDoes) {
  IniFile ini;
  ini["other"];
  for (const char* section : {"none", "other"}) {
    EXPECT_FALSE(ini.has(section, "k"));
    EXPECT_EQ(ini.getString(section, "k", " d "), " d ");
    EXPECT_EQ(ini.getInt(section, "k", -3), -3);
    EXPECT_EQ(ini.getDouble(section, "k", 0.1), 0.1);
    EXPECT_TRUE(ini.getBool(section, "k", true));
    EXPECT_FALSE(ini.getBool(section, "k", false));
  }
  EXPECT_FALSE(ini.has("none"));
  EXPECT_TRUE(ini.has("other"));
  const IniFile copy = ini;
  ini["other"] = {{"a", " # "}, {"", ""}};
  EXPECT_TRUE(ini.has("other", ""));
  EXPECT_EQ(ini.str(), "[other]\n=\na= # \n\n");
  EXPECT_EQ(copy.str(), "[other]\n\n");
}

// The path lies in the table that load discards. show leaves the width for what the host prints next.
TEST(IniFile, ReplacesTheTableEvenByNothingAndShowsIt) {
  const support::DescriptorCapture output(STDOUT_FILENO);
  IniFile ini;
  std::cout.width(9);
  ini["s"]["k"] = "no/such file";
  ini.show();
  EXPECT_FALSE(ini.load(ini["s"]["k"]));
  ini.show();
  ini["s"]["k"] = "/proc/self";
  EXPECT_TRUE(ini.load(ini["s"]["k"]));
  ini.show();
  std::cout << "end" << std::flush;
  EXPECT_EQ(output.text(), "[s]\nk=no/such file\n\nFailed to open file no/such file\n      end");
}

// The fault may come before or after the second read begins. Either way the last line is cut short.
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

// One long line, or many empty ones, so that a later line meets the end of a block.
TEST(IniFile, ReadsLinesOfAnyLengthAcrossTheEndsOfBlocks) {
  for (const std::size_t blocks : {1U, 2U}) {
    for (std::size_t shortOfBlockEnd = 0; shortOfBlockEnd < 16; ++shortOfBlockEnd) {
      const std::size_t size = blocks * oxu::LineReader::kBlockBytes - shortOfBlockEnd;
      const std::string value(size, 'v'), emptyLines(size, '\n');
      EXPECT_TRUE(loaded("a=" + value + "\nb=2\nc=3") == "[]\na=" + value + "\nb=2\nc=3\n\n") << size;
      EXPECT_EQ(loaded("a=1" + emptyLines + "b=2\nc=3"), "[]\na=1\nb=2\nc=3\n\n") << size;
    }
  }
}

}  // namespace
