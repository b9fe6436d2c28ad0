#include <climits>

#include "os/os_print.h"
#include "os/os_socket.h"
#include "os/os_socket_wait.h"
#include "oxu/LogServiceClient.h"

namespace {

constexpr int kConnectWaitMs = 3000;
constexpr int kSendWaitMs = 1000;
constexpr int kSendBufferBytes = 256 << 10;

enum Result { kConnected = 0, kNotConnected = -2, kNotSent = -3, kNotWritable = -4 };

int failSend(int result) {
  os_print_now(stderr, "[LogServiceClient]Failed to send data. ret = %d\n", result);
  return kNotSent;
}

// The system lets a socket connect to itself. That happens where the port it has chosen for the client is the one that
// the client connects to.
bool isConnectedToItself(CSocket& socket) {
  std::string ip, peerIp;
  unsigned short port = 0, peerPort = 0;
  return socket.getSockName(ip, port) && socket.getPeerName(peerIp, peerPort) && ip == peerIp && port == peerPort;
}

// Closes without the wait of an ordinary close, so that the port is free at once for the server that is to have it.
void reset(CSocket& socket) {
  const linger atOnce{1, 0};
  socket.setSockopt(SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  socket.close();
}

}  // namespace

// Handles are made here alone: after close, or a failed connection, a new client is needed. A socket whose bind failed
// still holds its handle, and could connect although a failure was printed. So it is closed.
LogServiceClient::LogServiceClient() : m_socket(*new CSocket) {
  if (!m_socket.initSocket(SOCK_STREAM, "", 0, 0)) {
    os_print_now(stderr, "[LogServiceClient]Socket initialization failed. ret = %d\n", os_socket_get_errno_code());
    m_socket.close();
    return;
  }
  // With the 8192 bytes of every CSocket, each piece waits until the piece before is acknowledged, which a receiver may
  // delay by 40 ms.
  m_socket.setSockopt(SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
}

LogServiceClient::~LogServiceClient() { m_socket.releaseRef(); }

// The socket's call only begins the attempt; the handle is writable once the attempt has succeeded. An attempt that
// takes too long goes on until the handle is closed.
int LogServiceClient::connect(const std::string& ip, int port) {
  if (!m_socket.connect(ip, static_cast<unsigned short>(port))) {
    const int error = os_socket_get_errno_code();
    os_print_now(stderr, "[LogServiceClient]Socket(%s:%d) connection failed. ret = %d\n", ip.c_str(), port, error);
    return kNotConnected;
  }
  int result = 0;
  if (os_socket_writable(m_socket.handle(), kConnectWaitMs, &result, m_socket.mode())) {
    if (!isConnectedToItself(m_socket)) return kConnected;
    reset(m_socket);
  }
  os_print_now(stderr, "[LogServiceClient]Socket(%s:%d) connection failed  \n", ip.c_str(), port);
  return kNotConnected;
}

// The system takes as many bytes as there is room for. So each piece waits for room again, and a peer that takes
// nothing for a whole wait ends the send. A reset link counts as writable, and the piece would fail without saying why:
// so the link is checked before each piece.
int LogServiceClient::send(const char* data, unsigned long length) {
  if (length > INT_MAX) return failSend(-1);
  const int size = static_cast<int>(length);
  for (int sent = 0; sent < size;) {
    if (!os_socket_writable(m_socket.handle(), kSendWaitMs, nullptr, m_socket.mode())) {
      os_print_now(stderr, "[LogServiceClient]Socket not ready to write.\n");
      return kNotWritable;
    }
    if (os_socket_is_link_broken(m_socket.handle(), 0)) {
      os_print_now(stderr, "[LogServiceClient]Socket link broken.\n");
      return kNotWritable;
    }
    const int piece = m_socket.send(data + sent, size - sent, 0);
    if (piece <= 0) return failSend(piece);
    sent += piece;
  }
  return size;
}

bool LogServiceClient::close() {
  if (m_socket.close()) return true;
  os_print_now(stderr, "[LogServiceClient]Socket close failed. ret = %d\n", os_socket_get_errno_code());
  return false;
}
