// Headers that some of the test files share.
#ifndef TESTS_SUPPORT_TEST_H
#define TESTS_SUPPORT_TEST_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <functional>
#include <limits>
#include <locale>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <type_traits>

#include "tests/support/Capture.h"
#include "tests/support/Child.h"
#include "tests/support/Faults.h"

namespace support {

// For a body that returns whether it holds.
inline bool holdsInChild(const std::function<bool()>& body) {
  inChild([&body] { EXPECT_TRUE(body()); });
  return true;
}

}  // namespace support

#endif
