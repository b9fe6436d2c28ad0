// How many bytes a second go from clients to a log service, beside a bare loop with the same buffers and waits. In a
// process of its own.
//
// Usage: log_service_speed WHO PIECE CLIENTS SECONDS
//   WHO      oxu or bare
//   PIECE    bytes of a send
//   CLIENTS  connections, all open at once, each with a thread on both sides
// Prints megabytes per second, from the first send until the last byte has been received.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Figures.h"
#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"

namespace {

using bench::Clock;

constexpr int kWaitMs = 1000;

class OxuServer {
 public:
  explicit OxuServer(std::atomic<long>& received) {
    m_service.m_callback = [&received](const char*, int size) { received += size; };
    m_service.startServer("127.0.0.1", 0);
  }
  int port() const { return m_service.port(); }

 private:
  LogService m_service;
};

class OxuClient {
 public:
  explicit OxuClient(int port) {
    if (m_client.connect("127.0.0.1", port) != 0) std::abort();
  }
  void send(const std::string& piece) {
    if (m_client.send(piece.data(), piece.size()) < 0) std::abort();
  }

 private:
  LogServiceClient m_client;
};

// The settings of the library's sockets.
void prepare(int fd, int sendBytes) {
  const int receiveBytes = 8192;
  ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBytes, sizeof sendBytes);
  ::fcntl(fd, F_SETFL, O_NONBLOCK);
}

void await(int fd, short events) {
  pollfd handle{fd, events, 0};
  while (::poll(&handle, 1, kWaitMs) == -1) {
    if (errno != EINTR) std::abort();
  }
}

class BareServer {
 public:
  explicit BareServer(std::atomic<long>& received) : m_received(received) {
    prepare(m_listener, 8192);
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(m_listener, reinterpret_cast<sockaddr*>(&m_address), m_length);
    ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&m_address), &m_length);
    if (::listen(m_listener, SOMAXCONN) != 0) std::abort();
    std::thread([this] { accept(); }).detach();
  }
  int port() const { return ntohs(m_address.sin_port); }

 private:
  void accept() {
    for (;;) {
      await(m_listener, POLLIN);
      const int client = ::accept(m_listener, nullptr, nullptr);
      if (client == -1) continue;
      prepare(client, 8192);
      std::thread([this, client] { receive(client); }).detach();
    }
  }

  void receive(int client) {
    char buffer[65536];
    for (;;) {
      await(client, POLLIN);
      const ssize_t size = ::recv(client, buffer, sizeof buffer, 0);
      if (size <= 0) return;
      m_received += size;
    }
  }

  std::atomic<long>& m_received;
  const int m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in m_address = {};
  socklen_t m_length = sizeof m_address;
};

class BareClient {
 public:
  explicit BareClient(int port) {
    prepare(m_fd, 256 * 1024);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno != EINPROGRESS)
      std::abort();
    await(m_fd, POLLOUT);
  }
  ~BareClient() { ::close(m_fd); }
  BareClient(const BareClient&) = delete;
  BareClient& operator=(const BareClient&) = delete;

  void send(const std::string& piece) {
    for (std::size_t sent = 0; sent < piece.size();) {
      await(m_fd, POLLOUT);
      if (isBroken()) std::abort();
      const ssize_t size = ::send(m_fd, piece.data() + sent, piece.size() - sent, MSG_NOSIGNAL);
      if (size <= 0) std::abort();
      sent += static_cast<std::size_t>(size);
    }
  }

 private:
  // The library's client looks before each piece, too: a send over a broken link fails without saying why.
  bool isBroken() const {
    pollfd handle{m_fd, POLLIN, 0};
    return ::poll(&handle, 1, 0) == -1 || (handle.revents & (POLLERR | POLLNVAL)) != 0;
  }

  const int m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

void waitFor(const std::atomic<long>& count, long wanted) {
  while (count < wanted) std::this_thread::sleep_for(std::chrono::microseconds(100));
}

// The clients connect one after the other, each of them once a first byte of the one before has been received. Then all
// send until the time is over.
template <class Server, class Client>
[[noreturn]] void measure(const std::string& piece, int clients, double seconds) {
  std::atomic<long> received{0}, sent{0};
  std::atomic<bool> isBegun{false};
  const Server server(received);
  std::vector<std::thread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      Client client(server.port());
      client.send("x");
      while (!isBegun) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      long count = 0;
      for (const auto begin = Clock::now(); bench::secondsSince(begin) < seconds; ++count) client.send(piece);
      sent += count * static_cast<long>(piece.size());
    });
    waitFor(received, i + 1);
  }
  const auto begin = Clock::now();
  isBegun = true;
  for (std::thread& thread : threads) thread.join();
  waitFor(received, clients + sent);
  std::fprintf(stderr, "mb_per_second %.2f\n", static_cast<double>(sent) / 1e6 / bench::secondsSince(begin));
  // What the servers' own end takes is not asked for.
  ::_exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: log_service_speed WHO PIECE CLIENTS SECONDS\n", stderr);
    return 2;
  }
  const std::string who = argv[1];
  const std::string piece(static_cast<std::size_t>(std::atol(argv[2])), 'x');
  const int clients = std::atoi(argv[3]);
  const double seconds = std::atof(argv[4]);
  if (who == "oxu") measure<OxuServer, OxuClient>(piece, clients, seconds);
  if (who == "bare") measure<BareServer, BareClient>(piece, clients, seconds);
  return bench::noPeer(argv[1]);
}
