#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "os/os_socket.h"
#include "os/os_socket_wait.h"
#include "oxu/Socket.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"
#include "tests/support/Faults.h"
#include "tests/support/Link.h"

namespace {

using support::kLoopback;
using support::Link;
using support::openDescriptors;
using support::portOf;
using Clock = std::chrono::steady_clock;

int option(CSocket& socket, int name) {
  int value = -1;
  unsigned int length = sizeof value;
  EXPECT_TRUE(socket.getSockopt(SOL_SOCKET, name, &value, &length));
  return value;
}

TEST(Socket, ClosesWithTheLastReferenceThatWasCountedOrGivenOut) {
  const int before = openDescriptors();
  auto* socket = new CSocket;
  ASSERT_TRUE(socket->initSocket(SOCK_DGRAM, "", 0, 0));
  void* found = nullptr;
  for (const char* name : {"ISock", "ISocketX", "ibase", ""}) EXPECT_FALSE(socket->queryInterface(name, &found));
  EXPECT_EQ(found, nullptr);
  for (const char* name : {"IBase", "ISocket"}) {
    found = nullptr;
    EXPECT_TRUE(socket->queryInterface(name, &found));
    EXPECT_EQ(found, static_cast<ISocket*>(socket));
  }
  EXPECT_EQ(socket->addRef(), 4U);
  for (const unsigned left : {3U, 2U, 1U, 0U}) EXPECT_EQ(socket->releaseRef(), left);
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Socket, ConfiguresTheHandleThatItTakesAndTakesOnlyOne) {
  struct Hooked : CSocket {
    std::vector<int> attached, detached;
    void onSocketAttach() override { attached.push_back(handle()); }
    void onSocketDetach() override { detached.push_back(handle()); }
  } socket;
  EXPECT_EQ(socket.handle(), -1);
  EXPECT_FALSE(socket.attach(-1, 0));
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_TRUE(socket.attach(fd, 0));
  EXPECT_FALSE(socket.attach(STDERR_FILENO, 5));
  EXPECT_EQ(socket.handle(), fd);
  EXPECT_EQ(socket.mode(), get_default_rt_mode());
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(option(socket, SO_REUSEADDR), 1);
  for (const int name : {SO_RCVBUF, SO_SNDBUF}) EXPECT_EQ(option(socket, name), 2 * 8192);  // the system doubles it
  for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval time{};
    unsigned int length = sizeof time;
    EXPECT_TRUE(socket.getSockopt(SOL_SOCKET, name, &time, &length));
    EXPECT_EQ(time.tv_sec * 1000000 + time.tv_usec, 500000);
  }
  EXPECT_EQ(socket.dettach(), fd);
  EXPECT_EQ(socket.attached, std::vector<int>{fd});
  EXPECT_EQ(socket.detached, std::vector<int>{fd});
  EXPECT_EQ(::close(fd), 0);
}

TEST(Socket, BindsToAllAddressesForATextItCannotUse) {
  const struct {
    const char *text, *address;
  } rows[] = {
      {"127.0.0.1", "127.0.0.1"}, {"", "0.0.0.0"},          {"0.0.0.0", "0.0.0.0"},
      {"localhost", "0.0.0.0"},   {"1.2.3.4.5", "0.0.0.0"}, {"255.255.255.255", "0.0.0.0"},
  };
  for (const auto& row : rows) {
    CSocket socket;
    std::string ip;
    unsigned short port = 0;
    EXPECT_FALSE(socket.getSockName(ip, port));
    EXPECT_TRUE(socket.initSocket(SOCK_DGRAM, row.text, 0, 0));
    EXPECT_TRUE(socket.getSockName(ip, port));
    EXPECT_FALSE(socket.getPeerName(ip, port));
    EXPECT_NE(port, 0);
    EXPECT_EQ(ip, row.address) << row.text;
    socket.close();
  }
}

TEST(Socket, TellsAConnectionThatIsUnderWayFromOneThatFailed) {
  const struct {
    int error;
    bool isUnderWay;
  } rows[] = {{EINPROGRESS, true}, {EAGAIN, true}, {ECONNREFUSED, false}, {EADDRNOTAVAIL, false}};
  Link link;
  for (const auto& row : rows) {
    const faults::Fault fault(faults::kConnect, row.error);
    EXPECT_EQ(link.client.connect(kLoopback, link.port()), row.isUnderWay) << row.error;
  }
}

TEST(Socket, RaisesNoSigpipeWhenItSendsAfterItsOwnEndOfStream) {
  support::inChild([] {
    ::signal(SIGPIPE, SIG_DFL);
    Link link;
    link.connect();
    link.endClientsStream();
    EXPECT_EQ(link.client.send("x", 1, 0), -1);
    EXPECT_EQ(os_socket_get_errno_code(), EPIPE);
    EXPECT_EQ(link.client.sendTo("x", 1, kLoopback, link.port(), 0), -1);
    EXPECT_EQ(os_socket_get_errno_code(), EPIPE);
  });
}

TEST(Socket, CarriesDatagramsWithTheirSender) {
  CSocket from, to;
  std::string ip = "kept";
  unsigned short sender = 7;
  char data[8] = {};
  for (CSocket* socket : {&from, &to}) ASSERT_TRUE(socket->initSocket(SOCK_DGRAM, kLoopback, 0, 0));
  EXPECT_EQ(to.receiveFrom(data, sizeof data, ip, sender, 0), -1);
  EXPECT_EQ(os_socket_get_errno_code(), EAGAIN);
  EXPECT_EQ(ip, "kept");
  EXPECT_EQ(sender, 7);
  EXPECT_EQ(from.sendTo("hello", 5, kLoopback, portOf(to), 0), 5);
  ASSERT_TRUE(os_socket_readable(to.handle(), 5000, nullptr, 0));
  EXPECT_EQ(to.receive(data, -1, 0), -1);
  EXPECT_EQ(to.receiveFrom(data, sizeof data, ip, sender, 0), 5);
  EXPECT_STREQ(data, "hello");
  EXPECT_EQ(ip, kLoopback);
  EXPECT_EQ(sender, portOf(from));
  for (CSocket* socket : {&from, &to}) socket->close();
}

TEST(Socket, ClosesTheHandleThatASocketHoldingOneCannotTake) {
  Link link;
  CSocket holder;
  std::string ip = "kept";
  unsigned short port = 1;
  ISocket* taker = nullptr;
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0));
  taker = &holder;
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0)) << "nobody is there";
  holder.initSocket(SOCK_STREAM, "", 0, 0);
  EXPECT_TRUE(link.client.connect(kLoopback, link.port()));
  const int before = openDescriptors();
  EXPECT_TRUE(os_socket_readable(link.listener.handle(), 5000, nullptr, 0));
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0));
  EXPECT_FALSE(holder.initSocket(SOCK_STREAM, "", 0, 0));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(ip, "kept");
  EXPECT_EQ(port, 1);
  char byte;
  EXPECT_TRUE(os_socket_readable(link.client.handle(), 5000, nullptr, 0));
  EXPECT_EQ(link.client.receive(&byte, 1, 0), 0);
  holder.close();
}

// In each state: what the three functions return, twice, and the error that they leave pending.
TEST(SocketWait, AnswersInEachStateOfAConnection) {
  const struct {
    const char* state;
    std::vector<void (Link::*)()> steps;
    bool isReadable, isWritable, isBroken;
    int pending;
  } rows[] = {
      {"fresh", {}, false, false, false, 0},
      {"connected", {&Link::connect}, false, true, false, 0},
      {"bytes to read", {&Link::connect, &Link::sendToClient}, true, true, false, 0},
      {"closed by the peer", {&Link::connect, &Link::closeServer}, true, true, false, 0},
      {"closed by both", {&Link::connect, &Link::endClientsStream, &Link::closeServer}, true, true, false, 0},
      {"reset", {&Link::connect, &Link::resetByServer}, true, true, true, ECONNRESET},
      {"reset with bytes", {&Link::connect, &Link::sendToClient, &Link::resetByServer}, true, true, false, ECONNRESET},
      {"closed, then reset", {&Link::connect, &Link::closeServer, &Link::sendToServer}, true, true, true, EPIPE},
      {"refused", {&Link::connectToClosedPort}, true, false, true, ECONNREFUSED},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.state);
    Link link;
    for (const auto step : row.steps) (link.*step)();
    pollfd failure{link.client.handle(), 0, 0};
    EXPECT_TRUE(row.pending == 0 || ::poll(&failure, 1, 5000) == 1);
    EXPECT_EQ(os_socket_readable(link.client.handle(), row.isReadable ? 5000 : 0, nullptr, 0), row.isReadable);
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(os_socket_readable(link.client.handle(), 0, nullptr, 0), row.isReadable);
      EXPECT_EQ(os_socket_writable(link.client.handle(), 0, nullptr, 0), row.isWritable);
      EXPECT_EQ(os_socket_is_link_broken(link.client.handle(), 0), row.isBroken);
    }
    EXPECT_EQ(option(link.client, SO_ERROR), row.pending);
  }
  EXPECT_FALSE(os_socket_readable(-1, -1, nullptr, 0));
  EXPECT_TRUE(os_socket_is_link_broken(-1, 0));
}

TEST(SocketAccept, PausesOnlyForLackOfRoomAndLeavesTheConnectionInTheQueue) {
  Link link;
  EXPECT_TRUE(link.client.connect(kLoopback, link.port()));
  const int listener = link.listener.handle(), notListening = link.notListening.handle();
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
    const faults::Fault noRoom(faults::kAccept, error);
    const auto begin = Clock::now();
    EXPECT_EQ(os_socket_accept(listener, nullptr, nullptr, 0), -1);
    EXPECT_EQ(os_socket_get_errno_code(), error);
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(100));
  }
  const auto begin = Clock::now();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(os_socket_accept(notListening, nullptr, nullptr, 0), -1);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  link.accept();
  EXPECT_EQ(::fcntl(link.server, F_GETFD), FD_CLOEXEC);
}

}  // namespace
