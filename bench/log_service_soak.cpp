// Connections that come and go: what a log service keeps of them. The clients are in a process of their own, so that
// the figures are the server's. Usage: log_service_soak [CONNECTIONS]; exit status 1 when a byte is lost, or when the
// server keeps more than a small record of each connection, a thread's stack for instance.
#include <dirent.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"

namespace {

constexpr int kClientsAtOnce = 8;
constexpr int kWarmUpConnections = 200;    // so that bursts have had as many threads at once as they get
constexpr long kMostBytesKept = 128;       // of a connection
constexpr long kMostStacksKb = 128 << 10;  // of all connections: the C library keeps some for the next threads

// Of the whole process.
struct Figures {
  long addressSpaceKb = 0;
  long residentKb = 0;
  long heapBytes = 0;
  int threads = 0;
  int descriptors = 0;

  void print(const char* when) const {
    std::printf("%-8s address space %ld kB, resident %ld kB, heap %ld bytes, %d threads, %d descriptors\n", when,
                addressSpaceKb, residentKb, heapBytes, threads, descriptors);
  }
};

int entriesOf(const char* path) {
  int count = 0;
  DIR* const directory = ::opendir(path);
  while (::readdir(directory) != nullptr) ++count;
  ::closedir(directory);
  return count - 2;
}

Figures figures() {
  Figures figures;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmSize:") status >> figures.addressSpaceKb;
    if (word == "VmRSS:") status >> figures.residentKb;
  }
  figures.heapBytes = static_cast<long>(::mallinfo2().uordblks);
  figures.threads = entriesOf("/proc/self/task");
  figures.descriptors = entriesOf("/proc/self/fd") - 1;
  return figures;
}

// Sends a number of bytes over a connection of its own; negative when that fails.
long sendOver(int port, const std::string& data, unsigned long size) {
  LogServiceClient client;
  const int result = client.connect("127.0.0.1", port);
  return result == 0 ? client.send(data.data(), size) : result;
}

// Sends from 1 to 65536 bytes over each of the connections; returns how many in all.
long runClients(int port, int connections) {
  const std::string data(65536, 'x');
  std::atomic<int> next{0};
  std::atomic<long> sent{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kClientsAtOnce; ++i) {
    threads.emplace_back([&] {
      for (int number; (number = next++) < connections;) {
        sent += sendOver(port, data, static_cast<unsigned long>(number) * 7919 % data.size() + 1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return sent;
}

// In a child, started before the server has threads.
class Clients {
 public:
  explicit Clients(int connections) {
    if (::pipe(m_port) != 0 || ::pipe(m_sent) != 0) std::abort();
    m_pid = ::fork();
    if (m_pid != 0) return;
    int port = 0;
    if (::read(m_port[0], &port, sizeof port) != sizeof port) ::_exit(1);
    const long sent = runClients(port, connections);
    ::_exit(::write(m_sent[1], &sent, sizeof sent) == sizeof sent ? 0 : 1);
  }

  // Returns the number of bytes sent.
  long run(int port) {
    long sent = -1;
    if (::write(m_port[1], &port, sizeof port) != sizeof port || ::read(m_sent[0], &sent, sizeof sent) != sizeof sent)
      std::perror("clients");
    ::waitpid(m_pid, nullptr, 0);
    return sent;
  }

 private:
  int m_port[2];
  int m_sent[2];
  pid_t m_pid;
};

}  // namespace

int main(int argc, char** argv) {
  const int connections = argc > 1 ? std::atoi(argv[1]) : 3000;
  ::mallopt(M_ARENA_MAX, 1);  // a pool for each thread would be 64 MB of address space, now and then
  Clients warmUp(kWarmUpConnections), clients(connections);
  // The status lines of each connection are of no use here.
  if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;
  const int console = ::dup(STDOUT_FILENO);
  std::atomic<long> received{0};
  LogService service;
  service.m_callback = [&](const char*, int length) { received += length; };
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  service.startServer("127.0.0.1", 0);

  // What the process allocates once is there before the first look.
  const auto idle = [&](long bytes, int threads) {
    while (received < bytes || entriesOf("/proc/self/task") > threads) ::usleep(1000);
  };
  const long warmUpBytes = warmUp.run(service.port());
  idle(warmUpBytes, 2);
  const Figures before = figures();
  const long sent = clients.run(service.port());
  idle(warmUpBytes + sent, 2);
  const Figures after = figures();
  service.stopServer();
  const Figures stopped = figures();

  ::dup2(console, STDOUT_FILENO);
  std::printf("%d connections, %ld bytes sent, %ld received\n", connections, sent, received - warmUpBytes);
  before.print("before");
  after.print("after");
  stopped.print("stopped");
  const bool isFlat = after.heapBytes - before.heapBytes <= kMostBytesKept * connections &&
                      after.addressSpaceKb - before.addressSpaceKb <= kMostStacksKb &&
                      after.descriptors == before.descriptors && after.threads == before.threads;
  return isFlat && received - warmUpBytes == sent ? 0 : 1;
}
