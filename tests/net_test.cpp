#include "os/os_socket.h"
#include "os/os_socket_wait.h"
#include "oxu/CApi.h"
#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"
#include "tests/support/Test.h"

namespace {

using support::countOf;
using support::openDescriptors;

const std::string kLoopback = "127.0.0.1";
using Clock = std::chrono::steady_clock;
constexpr int kEither = -1;  // the system may have told of it at once

unsigned short portOf(CSocket& socket) {
  std::string ip;
  unsigned short port = 0;
  EXPECT_TRUE(socket.getSockName(ip, port));
  return port;
}

// A listening handle, one that is bound and does not listen, and one accepted connection of a CSocket.
class Link {
 public:
  explicit Link(int backlog = 4) {
    for (CSocket* socket : {&listener, &nobody}) EXPECT_TRUE(socket->initSocket(SOCK_STREAM, kLoopback, 0, 0));
    EXPECT_TRUE(listener.listen(backlog) && client.initSocket(SOCK_STREAM, "", 0, 0));
  }
  ~Link() {
    closeServer();
    for (CSocket* socket : {&client, &listener, &nobody}) socket->close();
  }

  unsigned short port() { return portOf(listener); }
  int handle() const { return client.handle(); }

  void connect() {
    EXPECT_TRUE(client.connect(kLoopback, port()));
    accept();
  }
  void accept() {
    EXPECT_TRUE(os_socket_readable(listener.handle(), 5000, nullptr, 0));
    server = os_socket_accept(listener.handle(), nullptr, nullptr, 0);
  }
  void closeServer() {
    if (server != -1) ::close(server);
    server = -1;
  }
  void resetByServer() {
    const linger abort{1, 0};
    ::setsockopt(server, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    closeServer();
  }
  void sendToClient() { EXPECT_EQ(::write(server, "bytes", 5), 5); }

  int server = -1;
  CSocket listener, nobody, client;
};

int option(CSocket& socket, int name) {
  int value = -1;
  unsigned int length = sizeof value;
  EXPECT_TRUE(socket.getSockopt(SOL_SOCKET, name, &value, &length));
  return value;
}

TEST(Socket, CountsReferencesFindsInterfacesAndClosesWithTheLast) {
  const int before = openDescriptors();
  auto* socket = new CSocket;
  ASSERT_TRUE(socket->initSocket(SOCK_DGRAM, "", 0, 0));
  void* found = nullptr;
  for (const char* name : {"ISock", "ISocketX", "ibase", ""}) EXPECT_FALSE(socket->queryInterface(name, &found));
  EXPECT_TRUE(found == nullptr && socket->queryInterface("IBase", &found) && found == socket);
  EXPECT_TRUE(socket->queryInterface("ISocket", &found) && found == static_cast<ISocket*>(socket));
  EXPECT_EQ(socket->addRef(), 4U);
  for (std::uint64_t left = 4; left-- > 0;) EXPECT_EQ(socket->releaseRef(), left);
  EXPECT_EQ(openDescriptors(), before);
}

TEST(Socket, ConfiguresTheHandleThatItTakesAndTakesOnlyOne) {
  struct Hooked : CSocket {
    std::string calls;
    void onSocketAttach() override { calls += "attached " + std::to_string(handle() != -1) + "; "; }
    void onSocketDetach() override { calls += "detaching " + std::to_string(handle() != -1); }
  } socket;
  EXPECT_TRUE(socket.handle() == -1 && socket.mode() == 2 && !socket.attach(-1, 0));
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_TRUE(socket.attach(fd, 0));
  EXPECT_FALSE(socket.attach(::dup(fd), 5));
  EXPECT_TRUE(socket.handle() == fd && socket.mode() == get_default_rt_mode());
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(option(socket, SO_REUSEADDR), 1);
  for (const int name : {SO_RCVBUF, SO_SNDBUF}) EXPECT_EQ(option(socket, name), 2 * 8192);  // the system's own share
  for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval time{};
    unsigned int length = sizeof time;
    EXPECT_TRUE(socket.getSockopt(SOL_SOCKET, name, &time, &length));
    EXPECT_EQ(time.tv_usec, 500000);
  }
  EXPECT_EQ(socket.dettach(), fd);
  EXPECT_EQ(socket.calls, "attached 1; detaching 1");
  EXPECT_TRUE(socket.close() && ::close(fd) == 0);
}

TEST(Socket, TakesAnyAddressForATextThatIsNoneAndKeepsTheHandleAfterAFailedBind) {
  const char* const rows[][2] = {{"127.0.0.1", "127.0.0.1"}, {"", "0.0.0.0"},          {"0.0.0.0", "0.0.0.0"},
                                 {"localhost", "0.0.0.0"},   {"1.2.3.4.5", "0.0.0.0"}, {"255.255.255.255", "0.0.0.0"}};
  for (const auto& [text, address] : rows) {
    CSocket socket;
    std::string ip;
    unsigned short port = 0;
    EXPECT_TRUE(!socket.getSockName(ip, port) && socket.initSocket(SOCK_DGRAM, text, 0, 0));
    EXPECT_TRUE(socket.getSockName(ip, port) && !socket.getPeerName(ip, port) && port != 0);
    EXPECT_EQ(ip, address);
    socket.close();
  }
  Link taken;
  CSocket socket;
  EXPECT_TRUE(!socket.initSocket(SOCK_STREAM, kLoopback, taken.port(), 0) && socket.bind(kLoopback, 0));
  socket.close();
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

TEST(Socket, RaisesNoSigpipeWhenItSendsOverALinkThatIsClosed) {
  EXPECT_TRUE(support::holdsInChild([] {
    ::signal(SIGPIPE, SIG_DFL);
    Link link;
    link.connect();
    ::shutdown(link.handle(), SHUT_WR);
    return link.client.send("x", 1, 0) == -1 && os_socket_get_errno_code() == EPIPE &&
           link.client.sendTo("x", 1, kLoopback, link.port(), 0) == -1 && os_socket_get_errno_code() == EPIPE;
  }));
}

TEST(Socket, CarriesDatagramsWithTheirSender) {
  CSocket sockets[2];
  std::string ip = "kept";
  unsigned short ports[2] = {7, 7}, sender = 0;
  char data[8] = {};
  for (int i : {0, 1}) {
    ASSERT_TRUE(sockets[i].initSocket(SOCK_DGRAM, kLoopback, 0, 0));
    EXPECT_EQ(sockets[i].receiveFrom(data, sizeof data, ip, ports[i], 0), -1);
    EXPECT_TRUE(ip == "kept" && ports[i] == 7 && os_socket_get_errno_code() == EAGAIN);
  }
  for (int i : {0, 1}) sockets[i].getSockName(ip, ports[i]);
  EXPECT_EQ(sockets[0].sendTo("hello", 5, kLoopback, ports[1], 0), 5);
  ASSERT_TRUE(os_socket_readable(sockets[1].handle(), 5000, nullptr, 0));
  EXPECT_EQ(sockets[1].receiveFrom(data, sizeof data, ip, sender, 0), 5);
  EXPECT_TRUE(std::string(data) == "hello" && ip == kLoopback && sender == ports[0]);
  EXPECT_EQ(sockets[1].receive(data, -1, 0), -1);
  for (CSocket& socket : sockets) socket.close();
}

TEST(Socket, ClosesTheHandleThatAHoldingObjectCannotTake) {
  Link link;
  CSocket client;
  std::string ip = "kept";
  unsigned short port = 1;
  ISocket* taker = nullptr;
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0));
  taker = &client;
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0));  // nobody is there
  client.initSocket(SOCK_STREAM, "", 0, 0);
  EXPECT_TRUE(link.client.connect(kLoopback, link.port()));
  const int before = openDescriptors();
  EXPECT_TRUE(os_socket_readable(link.listener.handle(), 5000, nullptr, 0));
  EXPECT_FALSE(link.listener.accept(taker, ip, port, 0) || client.initSocket(SOCK_STREAM, "", 0, 0));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(ip == "kept" && port == 1);
  char byte;
  EXPECT_TRUE(os_socket_readable(link.handle(), 5000, nullptr, 0));
  EXPECT_EQ(link.client.receive(&byte, 1, 0), 0);
  client.close();
}

// What the three questions answer in each state of a connection, at once, and the error that is still to be
// collected after them.
TEST(SocketWait, TellsTheStatesOfAConnectionApart) {
  const struct {
    const char* state;
    void (*reach)(Link&);
    bool readable, writable, broken;
    int pending = 0;
  } rows[] = {
      {"fresh", [](Link&) {}, false, false, false},
      {"no handle", [](Link& link) { link.client.close(); }, false, false, true},
      {"connected", [](Link& link) { link.connect(); }, false, true, false},
      {"bytes to read", [](Link& link) { link.connect(), link.sendToClient(); }, true, true, false},
      {"closed by the peer", [](Link& link) { link.connect(), link.closeServer(); }, true, true, false},
      {"half closed", [](Link& link) { link.connect(), ::shutdown(link.server, SHUT_WR); }, true, true, false},
      {"closed by both", [](Link& link) { link.connect(), ::shutdown(link.handle(), SHUT_WR), link.closeServer(); },
       true, true, false},
      {"reset", [](Link& link) { link.connect(), link.resetByServer(); }, true, true, true, ECONNRESET},
      {"reset with bytes", [](Link& link) { link.connect(), link.sendToClient(), link.resetByServer(); }, true, true,
       false, ECONNRESET},
      {"closed, then reset", [](Link& link) { link.connect(), link.closeServer(), link.client.send("", 1, 0); }, true,
       true, true, EPIPE},
      {"refused", [](Link& link) { link.client.connect(kLoopback, portOf(link.nobody)); }, true, false, true, kEither},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.state);
    Link link;
    row.reach(link);
    const int fd = link.handle();
    EXPECT_EQ(os_socket_readable(fd, row.readable ? 5000 : 0, nullptr, 0), row.readable);
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(os_socket_readable(fd, 0, nullptr, 0), row.readable);
      EXPECT_EQ(os_socket_writable(fd, 0, nullptr, 0), row.writable);
      EXPECT_EQ(os_socket_is_link_broken(fd, 0), row.broken);
    }
    const int pending = fd == -1 ? 0 : option(link.client, SO_ERROR);
    EXPECT_TRUE(pending == row.pending || row.pending == kEither) << pending;
  }
}

TEST(SocketAccept, PausesForLackOfRoomAloneAndLeavesTheConnectionInTheQueue) {
  Link link;
  EXPECT_TRUE(link.client.connect(kLoopback, link.port()));
  const int listener = link.listener.handle(), nobody = link.nobody.handle();
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
    const faults::Fault noRoom(faults::kAccept, error);
    const auto begin = Clock::now();
    EXPECT_EQ(os_socket_accept(listener, nullptr, nullptr, 0), -1);
    EXPECT_EQ(os_socket_get_errno_code(), error);
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(100));
  }
  const auto begin = Clock::now();
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(os_socket_accept(nobody, nullptr, nullptr, 0), -1);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  // No member function is called meanwhile: a sanitizer needs descriptors to look at the object.
  const rlimit none{3, 1024}, some{1024, 1024};
  ::setrlimit(RLIMIT_NOFILE, &none);
  const int refused = os_socket_accept(listener, nullptr, nullptr, 0);
  ::setrlimit(RLIMIT_NOFILE, &some);
  EXPECT_TRUE(refused == -1 && os_socket_get_errno_code() == EMFILE);
  link.accept();
  EXPECT_EQ(::fcntl(link.server, F_GETFD), FD_CLOEXEC);
}

// A thread of the service stands for a connection: all are open until the end.
TEST(LogService, DeliversWhatEachOfManyClientsSendsByteForByte) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  std::mutex mutex;
  std::map<std::thread::id, std::string> received;
  std::atomic<std::size_t> missing{0};
  LogService service;
  service.m_callback = [&](const char* data, int length) {
    const std::lock_guard<std::mutex> lock(mutex);
    received[std::this_thread::get_id()].append(data, static_cast<std::size_t>(length));
    missing -= static_cast<std::size_t>(length);
    EXPECT_LE(length, 65536);
  };
  service.startServer(kLoopback, 0);
  LogServiceClient clients[8];
  std::vector<std::thread> threads;
  std::set<std::string> texts;
  std::mt19937 random(1);
  for (LogServiceClient& client : clients) {
    std::string text(100000 + random() % 100000, '\0');
    for (char& byte : text) byte = static_cast<char>(random());
    missing += text.size();
    texts.insert(text);
    threads.emplace_back([&, text] {
      EXPECT_EQ(client.connect(kLoopback, service.port()), 0);
      EXPECT_EQ(client.send(text.data(), text.size()), static_cast<int>(text.size()));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(support::eventually([&] { return missing == 0; }));
  service.stopServer();
  for (const auto& [thread, text] : received) EXPECT_EQ(texts.erase(text), 1U);
}

// The queue keeps them all while none can be taken; then one is taken right after the other.
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
  EXPECT_TRUE(support::eventually([&] { return received == 13 * kClients; })) << received;
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(9));
}

// The first round ends with a stop, the second with the server itself.
TEST(LogService, TellsOfEachConnectionEndsThemAllWhenStoppedAndStartsAgain) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  const std::string closed = "[LogServiceServer]close socket.\n",
                    init = "[LogServiceServer]system socket(127.0.0.1:#) init ";
  Link taken;
  const int port = taken.port(), before = openDescriptors();
  auto service = std::make_unique<LogService>();
  service->startServer(kLoopback, static_cast<short>(port));
  EXPECT_EQ(out.text(), "Bind failed, error code: 98\n");
  EXPECT_EQ(err.text(), support::filled(init + "failed!\n", {static_cast<short>(port)}));
  for (int round = 1; round <= 2; ++round) {
    service->stopServer();
    LogServiceClient refused, passing, idle[3];
    {
      const faults::Fault noThread(faults::kThread, EAGAIN);
      service->startServer(kLoopback, 0);
      EXPECT_EQ(service->port(), 0);
    }
    service->startServer(kLoopback, 0);
    const int own = service->port();
    service->startServer(kLoopback, 0);
    EXPECT_EQ(service->port(), own);
    {
      const faults::Fault noThread(faults::kThread, EAGAIN);
      EXPECT_EQ(refused.connect(kLoopback, own), 0);
      EXPECT_TRUE(support::eventually([&] { return countOf(closed, err.text()) == 5 * round - 4; }));
      EXPECT_TRUE(support::eventually([&] { return refused.send("x", 1) < 0; }));
    }
    for (LogServiceClient* client : {&passing, &idle[0], &idle[1], &idle[2]}) client->connect(kLoopback, own);
    EXPECT_EQ(passing.send("read and discarded", 18), 18);
    EXPECT_TRUE(support::eventually([&] { return countOf("accept client(127.0.0.1:", out.text()) == 5 * round; }));
    passing.close();
    EXPECT_TRUE(support::eventually([&] { return countOf(closed, err.text()) == 5 * round - 3; }));
    if (round == 1) service->stopServer();
    if (round == 2) service.reset();
    EXPECT_EQ(countOf(closed, err.text()), 5 * round);
    EXPECT_EQ(countOf("[LogServiceServer]Failed to receive data.\n", err.text()), round);
    EXPECT_EQ(countOf(support::filled(init + "success!\n", {0}), err.text()), 2 * round);
    EXPECT_EQ(countOf(support::filled(init + "failed!\n", {0}), err.text()), 2 * round);
  }
  EXPECT_EQ(openDescriptors(), before);
}

// What a client of the service has sent, as both callbacks got it.
struct Received {
  std::mutex mutex;
  std::vector<std::string> calls;

  void add(const std::string& call) {
    const std::lock_guard<std::mutex> lock(mutex);
    calls.push_back(call);
  }
  std::size_t count() {
    const std::lock_guard<std::mutex> lock(mutex);
    return calls.size();
  }
};

std::string packed(int type, const std::string& name, const std::string& body) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(type, name, body, &data, &length);
  const std::unique_ptr<char[]> owner(data);
  return std::string(data, static_cast<std::size_t>(length) + sizeof length);
}

// A frame that comes in two pieces, then two frames and the beginning of what breaks the stream in one.
TEST(LogService, HandsOnWholeFramesAndClosesAConnectionThatBringsNone) {
  const support::DescriptorCapture out(STDOUT_FILENO), err(STDERR_FILENO);
  Received received;
  LogService service;
  service.m_callback = [&](const char*, int length) { received.add("chunk of " + std::to_string(length)); };
  service.m_frameCallback = [&](const std::string& peer, const oxu::Frame& frame) {
    received.add(peer + " " + std::to_string(frame.type) + " " + frame.name + " " + frame.body);
  };
  service.m_maxFrameBytes = 1000;
  service.startServer(kLoopback, 0);
  Link link;
  ASSERT_TRUE(link.client.connect(kLoopback, service.port()));
  ASSERT_TRUE(os_socket_writable(link.handle(), 5000, nullptr, 0));
  const std::string peer = kLoopback + ":" + std::to_string(portOf(link.client));
  const auto send = [&](const std::string& bytes) {
    EXPECT_EQ(link.client.send(bytes.data(), static_cast<int>(bytes.size()), 0), static_cast<int>(bytes.size()));
  };
  const std::string first = packed(1, "name", "body");
  const std::string second =
      packed(255, "", "") + packed(2, "n", std::string(900, 'b')) + packed(3, "", std::string(1000, 'x'));
  send(first.substr(0, 9));
  EXPECT_TRUE(support::eventually([&] { return received.count() == 1; }));
  send(first.substr(9));
  EXPECT_TRUE(support::eventually([&] { return received.count() == 3; }));
  send(second);
  EXPECT_TRUE(os_socket_readable(link.handle(), 5000, nullptr, 0));
  char byte = 0;
  EXPECT_LE(link.client.receive(&byte, 1, 0), 0) << "the connection is closed";
  service.stopServer();
  const std::vector<std::string> calls = {"chunk of 9",          "chunk of 6",
                                          peer + " 1 name body", "chunk of " + std::to_string(second.size()),
                                          peer + " 255  ",       peer + " 2 n " + std::string(900, 'b')};
  EXPECT_EQ(received.calls, calls);
  EXPECT_EQ(countOf("[LogServiceServer]Broken frame from " + peer + ".\n", err.text()), 1);
}

// A client and the other end of its connection.
class Peer : public Link {
 public:
  Peer() : Link(0) {}
  ~Peer() {
    sender.close();
    if (m_reader.joinable()) m_reader.join();
  }

  Peer& join() {
    connectTo(port());
    accept();
    return *this;
  }
  int connectTo(int to) { return sender.connect(kLoopback, triedPort = to); }
  int send(unsigned long size) { return sender.send(std::string(size, 'x').data(), size); }
  Peer& readSlowly(int times) {
    m_reader = std::thread([this, times] {
      char buffer[4096];
      for (int left = times; left > 0 && ::read(server, buffer, sizeof buffer) > 0; --left) ::usleep(1000);
      resetByServer();
    });
    return *this;
  }

  LogServiceClient sender;
  int triedPort = 0;

 private:
  std::thread m_reader;
};

int withoutDescriptors(Peer& peer) {
  const rlimit none{3, 1024}, some{1024, 1024};
  ::setrlimit(RLIMIT_NOFILE, &none);
  LogServiceClient client;
  ::setrlimit(RLIMIT_NOFILE, &some);
  return client.connect(kLoopback, peer.triedPort);
}

int withoutPort(Peer& peer) {
  const faults::Fault fault(faults::kBind, EADDRINUSE);
  LogServiceClient client;
  return client.connect(kLoopback, peer.triedPort);
}

// The client's handle gets the lowest free number, which tells its port. Nothing is left of the connection: the port
// can be bound without address reuse.
int toItself(Peer& peer) {
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

// What each case returns, and prints on standard error: a # stands for the port. A text without a line end is the
// beginning of what is printed, for cases in which the system may tell of a failure sooner or later.
TEST(LogServiceClient, ReportsEachFailure) {
  constexpr unsigned long kMuch = 8 << 20;
  const std::string prefix = "[LogServiceClient]";
  const std::string notConnected = prefix + "Socket(127.0.0.1:#) connection failed";
  const struct {
    const char* what;
    int (*act)(Peer&);
    int result;
    std::string printed;
  } rows[] = {
      {"nothing to send", [](Peer& peer) { return peer.send(0); }, 0, ""},
      {"reader that is late", [](Peer& peer) { return peer.join().send(200000); }, 200000, ""},
      {"slow reader", [](Peer& peer) { return peer.join().readSlowly(INT_MAX).send(1 << 20); }, 1 << 20, ""},
      {"reader that stops", [](Peer& peer) { return peer.join().send(kMuch); }, -4,
       prefix + "Socket not ready to write.\n"},
      {"reset", [](Peer& peer) { return peer.join().resetByServer(), peer.send(1); }, -4,
       prefix + "Socket link broken.\n"},
      {"reset in mid-send", [](Peer& peer) { return peer.join().readSlowly(20).send(kMuch) & ~1; }, -4, prefix},
      {"too long", [](Peer& peer) { return peer.join().sender.send(nullptr, 1UL << 31); }, -3,
       prefix + "Failed to send data. ret = -1\n"},
      {"closed", [](Peer& peer) { return peer.sender.close() && peer.sender.close() ? peer.connectTo(1) : 0; }, -2,
       notConnected + ". ret = 9\n"},
      {"not connected", [](Peer& peer) { return peer.send(1); }, -4, prefix + "Socket not ready to write.\n"},
      {"refused", [](Peer& peer) { return peer.connectTo(portOf(peer.nobody)); }, -2, notConnected},
      {"itself", toItself, -2, notConnected + "  \n"},
      {"nobody answers",
       [](Peer& peer) { return peer.client.connect(kLoopback, peer.port()), peer.connectTo(peer.port()); }, -2,
       notConnected + "  \n"},
      {"no descriptor", withoutDescriptors, -2,
       prefix + "Socket initialization failed. ret = 24\n" + notConnected + ". ret = 9\n"},
      {"no port", withoutPort, -2, prefix + "Socket initialization failed. ret = 98\n" + notConnected + ". ret = 9\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Peer peer;
    const support::DescriptorCapture err(STDERR_FILENO);
    EXPECT_EQ(row.act(peer), row.result);
    const std::string expected = support::filled(row.printed, {peer.triedPort});
    const bool isWhole = expected.empty() || expected.back() == '\n';
    EXPECT_EQ(isWhole ? err.text() : err.text().substr(0, expected.size()), expected);
  }
}

TEST(Protocol, PacksTypeNameAndBodyIntoOneFrame) {
  using namespace std::string_literals;
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
    char untouched;
    char* frame = &untouched;
    int length = -1;
    ProtocolToString(row.type, row.name, row.body, &frame, &length);
    ASSERT_EQ(length, std::max(0, static_cast<int>(row.frame.size()) - 4));
    ASSERT_EQ(frame == nullptr, row.frame.empty());
    EXPECT_EQ(frame == nullptr ? "" : std::string(frame, row.frame.size()), row.frame);
    delete[] frame;
  }
}

}  // namespace
