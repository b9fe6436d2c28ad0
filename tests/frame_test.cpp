#include "oxu/CApi.h"
#include "oxu/FrameReader.h"
#include "tests/support/Test.h"

namespace oxu {

bool operator==(const Frame& left, const Frame& right) {
  return left.type == right.type && left.name == right.name && left.body == right.body;
}

}  // namespace oxu

namespace {

using namespace std::string_literals;
using oxu::Frame;
using oxu::FrameReader;

std::string packed(const Frame& frame) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(frame.type, frame.name, frame.body, &data, &length);
  const std::unique_ptr<char[]> owner(data);
  return {data, static_cast<std::size_t>(length) + 4};
}

std::vector<Frame> taken(FrameReader& reader) {
  std::vector<Frame> frames;
  for (Frame frame; reader.next(frame);) frames.push_back(frame);
  return frames;
}

// Some frames are larger than several pieces, some pieces hold several frames, and the frames are taken now and then.
TEST(FrameReader, GivesTheFramesOfAStreamHoweverItIsSplit) {
  std::mt19937 dice(20240611);
  for (int round = 0; round < 2000; ++round) {
    std::vector<Frame> sent, received;
    std::string stream;
    for (std::size_t count = dice() % 12; count > 0; --count) {
      const int type = static_cast<int>(dice() % 256);
      sent.push_back({type, std::string(dice() % 40, '\n'), std::string(dice() % (dice() % 8 == 0 ? 3000 : 60), '\0')});
      stream += packed(sent.back());
    }
    FrameReader reader;
    const std::size_t longestPiece = 1 + dice() % (round % 2 == 0 ? 12 : 400);
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t size = std::min<std::size_t>(dice() % (longestPiece + 1), stream.size() - at);
      ASSERT_TRUE(reader.add(stream.data() + at, size));
      at += size;
      for (Frame frame; dice() % 3 != 0 && reader.next(frame);) received.push_back(frame);
    }
    const std::vector<Frame> last = taken(reader);
    received.insert(received.end(), last.begin(), last.end());
    ASSERT_TRUE(received == sent && !reader.isBroken() && reader.unfinishedBytes() == 0) << round;
  }
}

TEST(FrameReader, CountsWhatStandsBehindTheLastWholeFrame) {
  const std::string first = packed({255, "n", "body"}), stream = first + packed({0, "", ""}) + "\x09\0\0\0\x01\x02"s;
  for (std::size_t at = 0; at <= stream.size(); ++at) {
    FrameReader reader;
    ASSERT_TRUE(reader.add(stream.data(), at) && reader.add(nullptr, 0));
    const std::size_t whole = at < first.size() ? 0 : at < first.size() + 7 ? 1 : 2;
    const std::size_t unfinished = at - (whole > 0 ? first.size() : 0) - (whole > 1 ? 7 : 0);
    EXPECT_EQ(reader.unfinishedBytes(), unfinished);
    EXPECT_EQ(taken(reader).size(), whole);
    EXPECT_EQ(reader.unfinishedBytes(), unfinished);
  }
}

TEST(FrameReader, KnowsABrokenStreamByTheFirstBytesThatDecide) {
  const std::size_t standard = 1 << 20, none = 0;
  const Frame before{7, "be", "fore"};
  const struct {
    const char* what;
    std::size_t maxFrameBytes;
    std::string frame;
    std::size_t decidingBytes;
  } rows[] = {
      {"length 0", standard, "\0\0\0\0\0\0\0"s, 4},
      {"length 3", standard, "\x03\0\0\0\0\0\0"s, none},
      {"name of one byte in a frame of none", standard, "\x03\0\0\0\0\x01\0n"s, 7},
      {"name that fills the frame", standard, "\x05\0\0\0\0\x02\0nm"s, none},
      {"name of 65535 bytes in a frame of one byte less", standard, "\x01\0\x01\0\0\xff\xff"s, 7},
      {"longest frame by default", standard, "\xfc\xff\x0f\0\0\0\0"s, none},
      {"one byte more", standard, "\xfd\xff\x0f\0\0\0\0"s, 4},
      {"longest length without a limit", SIZE_MAX, "\xff\xff\xff\xff\0\0\0"s, none},
      {"frame as long as the one before, which is the limit", 13, "\x09\0\0\0\0\0\0......"s, none},
      {"one byte more than the limit", 13, "\x0a\0\0\0\0\0\0......."s, 4},
  };
  for (const auto& row : rows) {
    const std::string start = packed(before), stream = start + row.frame;
    const bool breaks = row.decidingBytes != none;
    for (const std::size_t step : {std::size_t{1}, stream.size()}) {
      SCOPED_TRACE(row.what + " in steps of "s + std::to_string(step));
      FrameReader reader(row.maxFrameBytes);
      std::size_t added = 0;
      for (bool isSound = true; isSound && added < stream.size(); added += step)
        isSound = reader.add(stream.data() + added, step);
      EXPECT_EQ(reader.isBroken(), breaks);
      EXPECT_EQ(added, step == 1 && breaks ? start.size() + row.decidingBytes : stream.size());
      const std::size_t unfinished = reader.unfinishedBytes();
      EXPECT_TRUE(unfinished == added - start.size() || !breaks);
      EXPECT_EQ(reader.add(start.data(), 1), !breaks);
      EXPECT_EQ(reader.unfinishedBytes(), unfinished + (breaks ? 0 : 1));
      const std::vector<Frame> frames = taken(reader);
      ASSERT_FALSE(frames.empty());
      EXPECT_EQ(frames.front(), before);
    }
  }
}

// With work for each byte or frame that grows with the others this would not end in time.
TEST(FrameReader, WorkGrowsWithTheBytesAlone) {
  const Frame large{1, "large", std::string(4 << 20, 'b')};
  const std::string largeBytes = packed(large), small = packed({2, "", ""});
  FrameReader reader(largeBytes.size());
  for (const char& byte : largeBytes) ASSERT_TRUE(reader.add(&byte, 1));
  Frame frame;
  ASSERT_TRUE(reader.next(frame));
  EXPECT_EQ(frame, large);

  constexpr int kMany = 2000000;
  std::string many;
  for (int i = 0; i < kMany; ++i) many += small;
  ASSERT_TRUE(reader.add(many.data(), many.size()));
  int count = 0;
  while (reader.next(frame)) ++count;
  EXPECT_EQ(count, kMany);
}

// There is never a moment without the beginning of a frame, at which all could be forgotten at once.
TEST(FrameReader, KeepsNoBytesOfFramesThatWereTaken) {
  const std::string start = "\x03"s, end = "\0\0\0\x01\0\0"s;
  FrameReader reader;
  Frame frame;
  rusage before, after;
  ASSERT_EQ(::getrusage(RUSAGE_SELF, &before), 0);
  ASSERT_TRUE(reader.add(start.data(), start.size()));
  const std::string piece = end + start;
  for (int i = 0; i < 6000000; ++i) ASSERT_TRUE(reader.add(piece.data(), piece.size()) && reader.next(frame));
  ASSERT_EQ(::getrusage(RUSAGE_SELF, &after), 0);
  constexpr long kKibibytes = 16 << 10;
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, kKibibytes);
}

}  // namespace
