#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>

#include "os/os_socket_wait.h"
#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"
#include "tests/support/Link.h"

namespace {

using support::countOf;
using support::eventually;
using support::kLoopback;
using support::packed;
using Clock = std::chrono::steady_clock;

// While no connection can be accepted, the backlog keeps all. Then each is accepted without a pause: pauses of 10 ms
// would take 10 s.
TEST(LogService, ServesEachClientOfABurstThatCameWhenThereWasNoRoom) {
  constexpr int kClients = 1000;
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  std::atomic<int> received{0};
  LogService service;
  service.m_callback = [&](const char*, int length) { received += length; };
  service.startServer(kLoopback, 0);
  {
    const faults::Fault noRoom(faults::kAccept, EMFILE);
    const auto begin = Clock::now();
    for (int i = 0; i < kClients; ++i) {
      LogServiceClient client;
      ASSERT_EQ(client.connect(kLoopback, service.port()), 0);
      ASSERT_EQ(client.send("13 bytes each", 13), 13);
    }
    // Each failed accept leaves such a line.
    EXPECT_LE(countOf("close socket.\n", err.text()), 1 + (Clock::now() - begin) / std::chrono::milliseconds(100));
  }
  const auto begin = Clock::now();
  EXPECT_TRUE(eventually([&] { return received == 13 * kClients; })) << received;
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(9));
}

TEST(LogService, ReportsWhyItCannotStart) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  const std::string init = "[LogServiceServer]system socket(127.0.0.1:#) init ";
  const std::string failed = init + "failed!\n", success = init + "success!\n";
  support::Link other;
  const auto used = static_cast<short>(other.port());
  LogService service;
  service.startServer(kLoopback, used);
  EXPECT_EQ(out.text(), "Bind failed, error code: 98\n");
  {
    const faults::Fault noThread(faults::kThread, EAGAIN);
    service.startServer(kLoopback, 0);
    EXPECT_EQ(service.port(), 0);
  }
  service.startServer(kLoopback, 0);
  const int port = service.port();
  service.startServer(kLoopback, 0);
  EXPECT_EQ(service.port(), port);
  EXPECT_EQ(err.text(), support::filled(failed + success + failed + success + failed, {used, 0, 0, 0, 0}));
}

// The first round ends with a stop, the second with the destructor.
TEST(LogService, ReportsEachConnectionAndEndsAllWhenStopped) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  const auto closings = [&] { return countOf("[LogServiceServer]close socket.\n", err.text()); };
  const int before = support::openDescriptors();
  auto service = std::make_unique<LogService>();
  int accepted = 0, closed = 0;
  for (int round = 1; round <= 2; ++round) {
    LogServiceClient turnedAway, passing, idle[3];
    service->startServer(kLoopback, 0);
    const int port = service->port();
    {
      const faults::Fault noThread(faults::kThread, EAGAIN);
      EXPECT_EQ(turnedAway.connect(kLoopback, port), 0);
      closed += 1;
      EXPECT_TRUE(eventually([&] { return closings() == closed; }));
      EXPECT_TRUE(eventually([&] { return turnedAway.send("x", 1) < 0; }));
    }
    for (LogServiceClient* client : {&passing, &idle[0], &idle[1], &idle[2]}) client->connect(kLoopback, port);
    EXPECT_EQ(passing.send("read and discarded", 18), 18);
    accepted += 5;  // all that were made here
    EXPECT_TRUE(eventually([&] { return countOf("accept client(127.0.0.1:", out.text()) == accepted; }));
    passing.close();
    closed += 1;
    EXPECT_TRUE(eventually([&] { return closings() == closed; }));
    if (round == 1) service->stopServer();
    if (round == 2) service.reset();
    closed += 3;
    EXPECT_EQ(closings(), closed);
    EXPECT_EQ(countOf("[LogServiceServer]Failed to receive data.\n", err.text()), round);
  }
  EXPECT_EQ(support::openDescriptors(), before);
}

TEST(LogService, ReportsAConnectionThatBreaksDuringTheCallback) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  support::Link link;
  LogService service;
  std::atomic<bool> isSent{false};
  service.m_callback = [&](const char*, int) {
    while (!isSent) ::usleep(1000);
    link.resetByClient();
    ::usleep(50000);  // until the reset has surely arrived
  };
  service.startServer(kLoopback, 0);
  EXPECT_TRUE(link.client.connect(kLoopback, service.port()));
  EXPECT_TRUE(os_socket_writable(link.client.handle(), 5000, nullptr, 0));
  link.sendToServer();
  isSent = true;
  const std::string ended = "[LogServiceServer]Link broken or not ready to read.\n[LogServiceServer]close socket.\n";
  EXPECT_TRUE(eventually([&] { return countOf(ended, err.text()) == 1; })) << err.text();
}

// A frame in two pieces; then, in one piece, two frames and one that is too long.
TEST(LogService, HandsOnWholeFramesAndClosesAConnectionWhoseStreamBreaks) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  support::SharedText received;
  LogService service;
  service.m_callback = [&](const char*, int length) { received.append(std::to_string(length) + " bytes\n"); };
  service.m_frameCallback = [&](const std::string& peer, const oxu::Frame& frame) {
    received.append(peer + " " + std::to_string(frame.type) + " " + frame.name + " " + frame.body + "\n");
  };
  service.m_maxFrameBytes = 1000;
  service.startServer(kLoopback, 0);
  support::Link link;
  ASSERT_TRUE(link.client.connect(kLoopback, service.port()));
  ASSERT_TRUE(os_socket_writable(link.client.handle(), 5000, nullptr, 0));
  const std::string peer = kLoopback + ":" + std::to_string(support::portOf(link.client));
  const auto send = [&](const std::string& bytes) {
    EXPECT_EQ(link.client.send(bytes.data(), static_cast<int>(bytes.size()), 0), static_cast<int>(bytes.size()));
  };
  const std::string first = packed({1, "name", "body"});
  const std::string second =
      packed({255, "", ""}) + packed({2, "n", std::string(900, 'b')}) + packed({3, "", std::string(1000, 'x')});
  send(first.substr(0, 9));
  EXPECT_TRUE(received.eventuallyContains("9 bytes\n"));
  send(first.substr(9));
  EXPECT_TRUE(received.eventuallyContains("body\n"));
  send(second);
  EXPECT_TRUE(os_socket_readable(link.client.handle(), 5000, nullptr, 0));
  char byte = 0;
  EXPECT_LE(link.client.receive(&byte, 1, 0), 0);
  service.stopServer();
  EXPECT_EQ(received.get(), "9 bytes\n6 bytes\n" + peer + " 1 name body\n" + std::to_string(second.size()) +
                                " bytes\n" + peer + " 255  \n" + peer + " 2 n " + std::string(900, 'b') + "\n");
  EXPECT_EQ(countOf("[LogServiceServer]Broken frame from " + peer + ".\n", err.text()), 1);
}

}  // namespace
