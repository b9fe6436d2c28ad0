// The ring with a producer that is held between two of its steps. The hook stands in the place of the load that the
// ring makes, so this file has an instantiation of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

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

// Another producer and the consumer go once around the ring, so that the read index stands where a full ring would have
// it.
TEST(RingBuffer, RefusesNothingWhenAProducerIsOvertakenBetweenItsLoads) {
  CRingBuffer<Record> ring(4);
  Record taken{};
  afterNextLoad = [&] { ring.push({1}) && ring.pop(taken); };
  EXPECT_TRUE(ring.push({2}));
  EXPECT_EQ(taken.number, 1);
  EXPECT_TRUE(ring.pop(taken));
  EXPECT_EQ(taken.number, 2);
  EXPECT_EQ(ring.header()->reserveIndex, 2U);
}

}  // namespace
