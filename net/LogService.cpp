#include "oxu/LogService.h"

#include <climits>
#include <new>

#include "os/os_print.h"
#include "os/os_socket.h"
#include "os/os_socket_wait.h"
#include "os/os_thread.h"

namespace {

constexpr int kReadinessWaitMs = 1000;
constexpr int kAcceptPauseMs = 10;
constexpr int kBacklog = 10;
constexpr int kLongestBacklog = INT_MAX;  // the system takes its own maximum
constexpr int kBufferBytes = 65536;

void closeClient(CSocket* client) {
  client->close();
  delete client;
  os_print_now(stderr, "[LogServiceServer]close socket.\n");
}

}  // namespace

// The argument of a client thread.
struct LogService::ClientThread {
  LogService* service;
  std::shared_ptr<CSocket> client;
};

class LogService::Connection : public CSocket {
 public:
  std::string peer;  // "IP:PORT"; empty without a frame callback
};

// The frames of one connection.
class LogService::Frames {
 public:
  Frames(const LogService& service, const std::string& peer)
      : m_service(service), m_peer(peer), m_reader(service.m_maxFrameBytes) {}

  // Passes the frames that the bytes complete to the callback; false when the connection is to be closed.
  bool take(const char* data, int size) try {
    const bool isSound = m_reader.add(data, static_cast<std::size_t>(size));
    for (oxu::Frame frame; m_reader.next(frame);) m_service.m_frameCallback(m_peer, frame);
    if (!isSound) os_print_now(stderr, "[LogServiceServer]Broken frame from %s.\n", m_peer.c_str());
    return isSound;
  } catch (const std::bad_alloc&) {
    return false;
  }

 private:
  const LogService& m_service;
  const std::string& m_peer;
  oxu::FrameReader m_reader;
};

LogService::LogService() = default;

LogService::~LogService() { stopServer(); }

void LogService::startServer(const std::string& ip, short port) {
  const auto fail = [&] {
    os_print_now(stderr, "[LogServiceServer]system socket(%s:%d) init failed!\n", ip.c_str(), port);
  };
  if (m_thread != 0) return fail();

  m_stop = false;
  m_clientThreads.clear();
  if (!m_socket.initSocket(SOCK_STREAM, ip, static_cast<unsigned short>(port), 0)) {
    fail();
    m_socket.close();
    return;
  }
  // From listen on, the system completes connections and queues them, even before the thread runs.
  os_print_now(stderr, "[LogServiceServer]system socket(%s:%d) init success!\n", ip.c_str(), port);
  m_socket.listen(kBacklog);
  // With a short queue the system drops connections whose clients have seen connect and send succeed.
  m_socket.listen(kLongestBacklog);
  if (!os_thread_create(&m_thread, runMainThread, this, 0, 0)) {
    fail();
    m_socket.close();
  }
}

// The accept thread goes first, so that no client thread can appear. After the client threads nobody uses the sockets.
void LogService::stopServer() {
  m_stop = true;
  if (m_thread != 0) {
    os_thread_join(m_thread, nullptr);
    m_thread = 0;
  }
  for (unsigned long& thread : m_clientThreads) {
    if (thread != 0) os_thread_join(thread, nullptr);
    thread = 0;
  }
  m_socket.close();
}

unsigned short LogService::port() const {
  // The handle is bound but does not listen where another server came first, between bind and listen.
  int isListening = 0;
  unsigned int length = sizeof isListening;
  std::string ip;
  unsigned short port = 0;
  m_socket.getSockopt(SOL_SOCKET, SO_ACCEPTCONN, &isListening, &length);
  return isListening != 0 && m_socket.getSockName(ip, port) ? port : 0;
}

void* LogService::runMainThread(void* self) {
  static_cast<LogService*>(self)->mainThread();
  return nullptr;
}

// Every thread here waits with a limit, so that it sees m_stop. After a failed accept there is no pause: the accept has
// paused for lack of room. The pause after an accepted connection ends when the next connection waits.
void LogService::mainThread() {
  while (!m_stop) {
    if (!os_socket_readable(m_socket.handle(), kReadinessWaitMs, nullptr, m_socket.mode())) {
      os_thread_sleep_milliseconds(kAcceptPauseMs, 0);
    } else if (acceptClient()) {
      os_socket_readable(m_socket.handle(), kAcceptPauseMs, nullptr, m_socket.mode());
    }
  }
}

// False when no connection was accepted. Where memory runs out, the connection goes on waiting or is closed.
bool LogService::acceptClient() try {
  auto* const connection = new Connection;
  const std::shared_ptr<CSocket> client(connection, closeClient);
  ISocket* socket = client.get();
  std::string ip;
  unsigned short port = 0;
  if (!m_socket.accept(socket, ip, port, 0)) return false;
  os_print_now(stdout, "[LogServiceServer]accept client(%s:%u).\n", ip.c_str(), static_cast<unsigned>(port));
  if (m_frameCallback) connection->peer = ip + ":" + std::to_string(port);
  startClientThread(client);
  return true;
} catch (const std::bad_alloc&) {
  os_thread_sleep_milliseconds(kAcceptPauseMs, 0);
  return false;
}

// Where no thread can be started, the caller holds the last pointer, and its end closes the connection. The entry is
// made before the thread: there must be memory to remember a thread that runs.
void LogService::startClientThread(const std::shared_ptr<CSocket>& client) {
  std::unique_ptr<ClientThread> argument(new ClientThread{this, client});
  m_clientThreads.push_back(0);
  // A started thread owns the argument.
  if (os_thread_create(&m_clientThreads.back(), runClientThread, argument.get(), 0, 0)) (void)argument.release();
}

void* LogService::runClientThread(void* argument) {
  const std::unique_ptr<ClientThread> start(static_cast<ClientThread*>(argument));
  start->service->handleClient(start->client);
  return nullptr;
}

// Its own pointer keeps the connection open. NOLINTNEXTLINE(performance-unnecessary-value-param)
void LogService::handleClient(std::shared_ptr<CSocket> client) {
  char buffer[kBufferBytes];
  Frames frames(*this, static_cast<const Connection&>(*client).peer);
  while (!m_stop) {
    if (os_socket_is_link_broken(client->handle(), 0)) {
      os_print_now(stderr, "[LogServiceServer]Link broken or not ready to read.\n");
      return;
    }
    if (!os_socket_readable(client->handle(), kReadinessWaitMs, nullptr, client->mode())) continue;
    const int size = client->receive(buffer, kBufferBytes, 0);
    if (size <= 0) {
      os_print_now(stderr, "[LogServiceServer]Failed to receive data.\n");
      return;
    }
    if (m_callback) m_callback(buffer, size);
    if (m_frameCallback && !frames.take(buffer, size)) return;
  }
}
