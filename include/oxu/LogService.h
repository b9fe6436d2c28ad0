/// A small TCP server that hands every chunk of bytes, or every frame, that a client sends to a callback of the host.
///
/// | state     | reached by                             | startServer                 | stopServer, destruction |
/// |-----------|----------------------------------------|-----------------------------|-------------------------|
/// | stopped   | construction, stopServer, failed start | listens                     | no effect               |
/// | listening | startServer                            | prints the init-failed line | stops                   |
///
/// Threads: startServer, stopServer, port and the destructor are called by one thread at a time, and never from a
/// callback. The server has one thread that accepts, and one per connection, with a 64 KiB buffer on its stack.
///
/// A connection that has ended leaves a small record behind until stopServer. As many connections as the system allows
/// wait to be accepted, even while no descriptor or memory is free for them.
///
/// The server prints what it does, as lines that begin with "[LogServiceServer]": accepted connections on standard
/// output, all else on standard error. A line that cannot be written is dropped.
///
/// There is no authentication and no encryption: listen on a loopback address or in a trusted network.
#ifndef OXU_LOGSERVICE_H
#define OXU_LOGSERVICE_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "oxu/Export.h"
#include "oxu/FrameReader.h"
#include "oxu/Socket.h"

class OXU_EXPORT LogService {
 public:
  LogService();

  /// Stops a running server.
  ~LogService();

  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  /// Listens on `ip`:`port`; port 0 lets the system choose. An `ip` that is no IPv4 address ("localhost", "") means all
  /// addresses of the machine. A port above 32767 is given as static_cast<short>(port), and printed as a negative
  /// number.
  ///
  /// There is no result: after a failure, port() is 0, and "[LogServiceServer]system socket(%s:%d) init failed!\n" is
  /// on standard error. Where the bind fails, "Bind failed, error code: %d\n" is on standard output before that. Where
  /// another server takes the port at the same moment, only port() tells of the failure, and stopServer must come
  /// before the next start.
  void startServer(const std::string& ip, short port);

  /// Ends and joins every thread and closes every socket. Takes up to about a second, and longer where a callback
  /// still runs, or where standard output or error takes no lines. Bytes that no thread has received yet are lost.
  void stopServer();

  /// The port that the server listens on; 0 when it does not listen.
  unsigned short port() const;

 private:
  std::atomic<bool> m_stop{false};
  std::uint64_t m_thread = 0;
  std::vector<unsigned long> m_clientThreads;

 public:
  /// Gets each received chunk of 1 to 65536 bytes. A chunk need not begin or end where a send of the client did. The
  /// data is the library's, and valid during the call. Where no callback is set, what is received is discarded.
  ///
  /// The host assigns the callback before startServer, and leaves it alone while the server runs. The callback must not
  /// throw. It runs on the thread of the connection:
  /// - calls for different connections overlap;
  /// - calls for one connection come one by one, in order, on one thread;
  /// - that thread serves no other connection, so a thread_local object belongs to one connection and ends with it.
  std::function<void(const char* data, int length)> m_callback;

  /// Gets each whole frame, unpacked, that a client has packed as ProtocolToString does, and the client's "IP:PORT".
  /// Assigned and called like m_callback. Both may be set: m_callback comes first with each chunk, and gets every byte.
  ///
  /// A connection whose stream breaks (oxu/FrameReader.h says when) is closed after its whole frames have been handed
  /// on; "[LogServiceServer]Broken frame from IP:PORT.\n" is on standard error. A connection for which memory runs out
  /// is closed without that line.
  std::function<void(const std::string& peer, const oxu::Frame& frame)> m_frameCallback;

  /// The size in bytes of the longest frame that m_frameCallback takes, its length field included. Each connection may
  /// need about three times as much memory. Assigned before startServer.
  std::size_t m_maxFrameBytes = 1 << 20;

 private:
  struct ClientThread;
  class Connection;
  class Frames;

  static void* runMainThread(void* self);
  static void* runClientThread(void* argument);
  void mainThread();
  bool acceptClient();
  void startClientThread(const std::shared_ptr<CSocket>& client);
  void handleClient(std::shared_ptr<CSocket> client);

  mutable CSocket m_socket;  // asked for its port by const members
};

#endif
