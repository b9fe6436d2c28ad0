#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "oxu/CApi.h"
#include "oxu/FrameReader.h"
#include "tests/support/Link.h"

namespace {

using namespace std::string_literals;
using oxu::Frame;
using oxu::FrameReader;

TEST(Protocol, PacksAFrameUnlessTheNameIsTooLong) {
  const struct {
    int type;
    std::string name, body, frame;
  } rows[] = {
      {1, "ab", "xyz", "\x08\0\0\0\x01\x02\0abxyz"s},
      {0x1ff, "", "", "\x03\0\0\0\xff\0\0"s},
      {0, "n\0m"s, "\0"s, "\x07\0\0\0\0\x03\0n\0m\0"s},
      {2, std::string(65535, 'n'), "b", "\x03\0\x01\0\x02\xff\xff"s + std::string(65535, 'n') + "b"},
      {1, std::string(65536, 'n'), "", ""},
  };
  for (const auto& row : rows) {
    char old;
    char* frame = &old;
    int length = -1;
    ProtocolToString(row.type, row.name, row.body, &frame, &length);
    ASSERT_EQ(length, row.frame.empty() ? 0 : static_cast<int>(row.frame.size()) - 4);
    ASSERT_EQ(frame == nullptr, row.frame.empty());
    EXPECT_EQ(frame == nullptr ? "" : std::string(frame, row.frame.size()), row.frame);
    delete[] frame;
  }
}

TEST(FrameReader, KnowsABrokenStreamByTheFirstBytesThatDecide) {
  constexpr std::size_t none = 0;
  const struct {
    const char* what;
    FrameReader reader;
    std::string frame;
    std::size_t decidingBytes;
  } rows[] = {
      {"longest frame by default", {}, "\xfc\xff\x0f\0\0\0\0"s, none},
      {"one byte more", {}, "\xfd\xff\x0f\0\0\0\0"s, 4},
      {"longest length without a limit", FrameReader(SIZE_MAX), "\xff\xff\xff\xff\0\0\0"s, none},
      {"no room for the header", {}, "\x02\0\0\0"s, 4},
      {"name longer than the frame", {}, "\x03\0\0\0\0\x01\0"s, 7},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string start = support::packed({7, "be", "fore"}), stream = start + row.frame;
    FrameReader reader = row.reader;
    std::size_t added = 0;
    while (added < stream.size() && reader.add(&stream[added], 1)) ++added;
    EXPECT_EQ(reader.isBroken(), row.decidingBytes != none);
    EXPECT_EQ(added, row.decidingBytes != none ? start.size() + row.decidingBytes - 1 : stream.size());
    Frame frame;
    ASSERT_TRUE(reader.next(frame));
    EXPECT_EQ(support::packed(frame), start);
  }
}

// If each byte or frame took longer the more there were, the time limit of the test would end this.
TEST(FrameReader, WorksInProportionToTheBytes) {
  const std::string bytes = support::packed({1, "large", std::string(4 << 20, 'b')});
  FrameReader reader(bytes.size());
  for (const char& byte : bytes) ASSERT_TRUE(reader.add(&byte, 1));
  Frame frame;
  ASSERT_TRUE(reader.next(frame));
  EXPECT_TRUE(support::packed(frame) == bytes);

  constexpr int kMany = 2000000;
  std::string many;
  for (int i = 0; i < kMany; ++i) many += "\x03\0\0\0\x02\0\0"s;
  ASSERT_TRUE(reader.add(many.data(), many.size()));
  int count = 0;
  while (reader.next(frame)) ++count;
  EXPECT_EQ(count, kMany);
}

long residentPages() {
  long virtualPages = 0, pages = 0;
  std::ifstream("/proc/self/statm") >> virtualPages >> pages;
  return pages;
}

// The reader always holds the beginning of a frame: it has no empty moment at which it could drop everything.
TEST(FrameReader, DropsTheBytesOfTakenFramesInTheLongRun) {
  const std::string start = "\x03"s, piece = "\0\0\0\x01\0\0\x03"s;
  FrameReader reader;
  Frame frame;
  const long before = residentPages();
  ASSERT_TRUE(reader.add(start.data(), start.size()));
  for (int i = 0; i < 6000000; ++i) {
    ASSERT_TRUE(reader.add(piece.data(), piece.size()));
    ASSERT_TRUE(reader.next(frame));
  }
  constexpr long kAllowedPages = 4096;
  EXPECT_LT(residentPages() - before, kAllowedPages);
}

}  // namespace
