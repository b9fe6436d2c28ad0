// Runs code between two steps of a push. A hook replaces the atomic load, so RingBuffer.h is compiled here with a
// record type of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <utility>

#include "os/os_thread.h"

namespace {

std::function<void()> afterNextLoad;

std::uint64_t loadAndBeOvertaken(const std::uint64_t* word) {
  const std::uint64_t value = os_thread_sync_load(word);
  if (afterNextLoad) std::exchange(afterNextLoad, nullptr)();
  return value;
}

}  // namespace

#define os_thread_sync_load loadAndBeOvertaken
#include "log/RingBuffer.h"
#undef os_thread_sync_load

namespace {

struct Record {
  std::int64_t number;
};

// Meanwhile another producer pushes and the consumer pops. The read index is then one ahead of the reserve index that
// was loaded, as in a full ring.
TEST(RingBuffer, RefusesNothingWhenAProducerIsOvertakenBetweenItsLoads) {
  CRingBuffer<Record> ring(4);
  Record taken{};
  afterNextLoad = [&] {
    EXPECT_TRUE(ring.push({1}));
    EXPECT_TRUE(ring.pop(taken));
  };
  EXPECT_TRUE(ring.push({2}));
  EXPECT_EQ(taken.number, 1);
  EXPECT_TRUE(ring.pop(taken));
  EXPECT_EQ(taken.number, 2);
  EXPECT_EQ(ring.header()->reserveIndex, 2U);
}

}  // namespace
