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

// While none can be accepted, the backlog keeps them all. Then each is accepted right after the one before.
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
    const int failures = countOf("close socket.\n", err.text());
    EXPECT_LE(failures, 1 + (Clock::now() - begin) / std::chrono::milliseconds(100));
  }
  const auto begin = Clock::now();
  EXPECT_TRUE(eventually([&] { return received == 13 * kClients; })) << received;
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(9));
}

// The first round ends with a stop, the second with the server itself.
TEST(LogService, TellsOfEachConnectionEndsThemAllWhenStoppedAndStartsAgain) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  const std::string init = "[LogServiceServer]system socket(127.0.0.1:#) init ";
  const auto closings = [&] { return countOf("[LogServiceServer]close socket.\n", err.text()); };
  support::Link other;
  const int before = support::openDescriptors();
  auto service = std::make_unique<LogService>();
  service->startServer(kLoopback, static_cast<short>(other.port()));
  EXPECT_EQ(out.text(), "Bind failed, error code: 98\n");
  EXPECT_EQ(err.text(), support::filled(init + "failed!\n", {static_cast<short>(other.port())}));
  int accepted = 0, closed = 0;
  for (int round = 1; round <= 2; ++round) {
    service->stopServer();
    LogServiceClient turnedAway, passing, idle[3];
    {
      const faults::Fault noThread(faults::kThread, EAGAIN);
      service->startServer(kLoopback, 0);
      EXPECT_EQ(service->port(), 0);
    }
    service->startServer(kLoopback, 0);
    const int port = service->port();
    service->startServer(kLoopback, 0);
    EXPECT_EQ(service->port(), port);
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
    EXPECT_EQ(countOf(support::filled(init + "success!\n", {0}), err.text()), 2 * round);
    EXPECT_EQ(countOf(support::filled(init + "failed!\n", {0}), err.text()), 2 * round);
  }
  EXPECT_EQ(support::openDescriptors(), before);
}

// A frame that comes in two pieces, then two frames and the beginning of what breaks the stream in one.
TEST(LogService, HandsOnWholeFramesAndClosesAConnectionThatBringsNone) {
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
  ASSERT_TRUE(os_socket_writable(link.handle(), 5000, nullptr, 0));
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
  EXPECT_TRUE(os_socket_readable(link.handle(), 5000, nullptr, 0));
  char byte = 0;
  EXPECT_LE(link.client.receive(&byte, 1, 0), 0) << "the connection is closed";
  service.stopServer();
  EXPECT_EQ(received.get(), "9 bytes\n6 bytes\n" + peer + " 1 name body\n" + std::to_string(second.size()) +
                                " bytes\n" + peer + " 255  \n" + peer + " 2 n " + std::string(900, 'b') + "\n");
  EXPECT_EQ(countOf("[LogServiceServer]Broken frame from " + peer + ".\n", err.text()), 1);
}

}  // namespace
