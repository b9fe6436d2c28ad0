// Two ends of a TCP connection over loopback, and the frames that go over it.
#ifndef TESTS_SUPPORT_LINK_H
#define TESTS_SUPPORT_LINK_H

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "os/os_socket.h"
#include "os/os_socket_wait.h"
#include "oxu/CApi.h"
#include "oxu/FrameReader.h"
#include "oxu/Socket.h"

namespace support {

inline const std::string kLoopback = "127.0.0.1";

inline unsigned short portOf(CSocket& socket) {
  std::string ip;
  unsigned short port = 0;
  EXPECT_TRUE(socket.getSockName(ip, port));
  return port;
}

// The frame as ProtocolToString packs it; its length leaves out the 4 bytes of the length field.
inline std::string packed(const oxu::Frame& frame) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(frame.type, frame.name, frame.body, &data, &length);
  const std::unique_ptr<char[]> owner(data);
  return {data, static_cast<std::size_t>(length) + 4};
}

// A listener, a bound socket that does not listen, a client and, once accepted, the server's end of its connection.
class Link {
 public:
  explicit Link(int backlog = 4) {
    for (CSocket* socket : {&listener, &notListening}) EXPECT_TRUE(socket->initSocket(SOCK_STREAM, kLoopback, 0, 0));
    EXPECT_TRUE(listener.listen(backlog));
    EXPECT_TRUE(client.initSocket(SOCK_STREAM, "", 0, 0));
  }
  ~Link() {
    closeServer();
    for (CSocket* socket : {&client, &listener, &notListening}) socket->close();
  }

  unsigned short port() { return portOf(listener); }

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
  void resetByServer() { reset(std::exchange(server, -1)); }
  void resetByClient() { reset(client.dettach()); }
  void sendToClient() { EXPECT_EQ(::write(server, "bytes", 5), 5); }
  void sendToServer() { EXPECT_EQ(client.send("x", 1, 0), 1); }
  void endClientsStream() { ::shutdown(client.handle(), SHUT_WR); }
  void connectToClosedPort() { client.connect(kLoopback, portOf(notListening)); }

  static void reset(int fd) {
    const linger abort{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    ::close(fd);
  }

  int server = -1;
  CSocket listener, notListening, client;
};

}  // namespace support

#endif
