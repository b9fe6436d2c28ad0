// What the test files share: the standard and system headers, capture and faults with what they include.
#ifndef TESTS_SUPPORT_TEST_H
#define TESTS_SUPPORT_TEST_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
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

// For bodies that return whether they hold.
inline bool holdsInChild(const std::function<bool()>& body) {
  inChild([&body] { EXPECT_TRUE(body()); });
  return true;
}
inline bool holdsWithPipe(const std::function<bool(int readEnd)>& body) {
  inChildWithPipe([&body](int readEnd) { EXPECT_TRUE(body(readEnd)); });
  return true;
}

}  // namespace support

#endif
