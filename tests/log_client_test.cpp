#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "oxu/LogServiceClient.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"
#include "tests/support/Link.h"

namespace {

using support::kLoopback;
using support::Link;

// A client and the other end of its connection.
class Peer : public Link {
 public:
  Peer() : Link(0) {}
  ~Peer() {
    sender.close();
    if (m_reader.joinable()) m_reader.join();
  }

  void connectSender() {
    connectTo(port());
    accept();
  }
  int connectTo(int to) { return sender.connect(kLoopback, triedPort = to); }
  int send(unsigned long size) { return sender.send(std::string(size, 'x').data(), size); }
  void readSlowly() { readThenReset(INT_MAX); }
  void readABit() { readThenReset(20); }
  void takeThePlaceInTheQueue() { client.connect(kLoopback, port()); }
  void closeTwice() {
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(sender.close());
  }

  LogServiceClient sender;
  int triedPort = 0;

 private:
  void readThenReset(int times) {
    m_reader = std::thread([this, times] {
      char buffer[4096];
      for (int left = times; left > 0 && ::read(server, buffer, sizeof buffer) > 0; --left) ::usleep(1000);
      resetByServer();
    });
  }

  std::thread m_reader;
};

int connectToPeer(Peer& peer) { return peer.connectTo(peer.port()); }
int connectToClosedPort(Peer& peer) { return peer.connectTo(support::portOf(peer.notListening)); }
int sendNothing(Peer& peer) { return peer.send(0); }
int sendOne(Peer& peer) { return peer.send(1); }
int sendSome(Peer& peer) { return peer.send(1 << 20); }
int sendMuch(Peer& peer) { return peer.send(8 << 20); }
int sendTooMuch(Peer& peer) { return peer.sender.send(nullptr, 1UL << 31); }

int connectWithoutDescriptors(Peer& peer) {
  rlimit some{};
  ::getrlimit(RLIMIT_NOFILE, &some);
  const rlimit none{3, some.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  LogServiceClient client;
  ::setrlimit(RLIMIT_NOFILE, &some);
  return client.connect(kLoopback, peer.triedPort);
}

int connectWithoutPort(Peer& peer) {
  const faults::Fault fault(faults::kBind, EADDRINUSE);
  LogServiceClient client;
  return client.connect(kLoopback, peer.triedPort);
}

// The client's handle gets the lowest free number: so its port can be asked for. Afterwards the port is free even
// without address reuse.
int connectToItself(Peer& peer) {
  const int number = ::dup(STDERR_FILENO);
  ::close(number);
  LogServiceClient client;
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(::getsockname(number, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const int result = client.connect(kLoopback, peer.triedPort = ntohs(address.sin_port));
  const int server = ::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&address), length), 0);
  ::close(server);
  return result;
}

// In `printed`, # stands for the port.
TEST(LogServiceClient, ReportsHowEachCallEnds) {
  const std::string prefix = "[LogServiceClient]";
  const std::string notReady = prefix + "Socket not ready to write.\n", broken = prefix + "Socket link broken.\n";
  const std::string notSent = prefix + "Failed to send data. ret = -1\n";
  const std::string notConnected = prefix + "Socket(127.0.0.1:#) connection failed";
  const std::string atOnce = notConnected + ". ret = ", later = notConnected + "  \n";
  const std::string noSocket = prefix + "Socket initialization failed. ret = ";
  struct Outcome {
    int result;
    std::string printed;
  };
  const struct {
    const char* what;
    std::vector<void (Peer::*)()> steps;
    int (*act)(Peer&);
    std::vector<Outcome> outcomes;  // any of these: the system decides when a failure shows
  } rows[] = {
      {"nothing to send", {}, sendNothing, {{0, ""}}},
      {"slow reader", {&Peer::connectSender, &Peer::readSlowly}, sendSome, {{1 << 20, ""}}},
      {"reader that stops", {&Peer::connectSender}, sendMuch, {{-4, notReady}}},
      {"reset", {&Peer::connectSender, &Peer::resetByServer}, sendOne, {{-4, broken}}},
      {"reset in mid-send",
       {&Peer::connectSender, &Peer::readABit},
       sendMuch,
       {{-4, broken}, {-4, notReady}, {-3, notSent}}},
      {"too much", {&Peer::connectSender}, sendTooMuch, {{-3, notSent}}},
      {"closed", {&Peer::closeTwice}, connectToPeer, {{-2, atOnce + "9\n"}}},
      {"not connected", {}, sendOne, {{-4, notReady}}},
      {"refused", {}, connectToClosedPort, {{-2, atOnce + "111\n"}, {-2, later}}},
      {"nobody answers", {&Peer::takeThePlaceInTheQueue}, connectToPeer, {{-2, later}}},
      {"itself", {}, connectToItself, {{-2, later}}},
      {"no descriptor", {}, connectWithoutDescriptors, {{-2, noSocket + "24\n" + atOnce + "9\n"}}},
      {"no port", {}, connectWithoutPort, {{-2, noSocket + "98\n" + atOnce + "9\n"}}},
  };
  for (const auto& row : rows) {
    Peer peer;
    const support::DescriptorCapture err(STDERR_FILENO);
    for (const auto step : row.steps) (peer.*step)();
    const int result = row.act(peer);
    const auto isWhatHappened = [&](const Outcome& outcome) {
      return outcome.result == result && support::filled(outcome.printed, {peer.triedPort}) == err.text();
    };
    EXPECT_TRUE(std::any_of(row.outcomes.begin(), row.outcomes.end(), isWhatHappened))
        << row.what << ": " << result << ", " << err.text();
  }
}

}  // namespace
