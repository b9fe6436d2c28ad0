/// A small TCP server: hands every chunk of bytes that a client sends to a callback of the host's.
///
/// | state     | reached by                             | startServer                 | stopServer, destruction |
/// |-----------|----------------------------------------|-----------------------------|-------------------------|
/// | stopped   | construction, stopServer, failed start | listens                     | no effect               |
/// | listening | startServer                            | prints the init-failed line | stops                   |
///
/// Threads: startServer, stopServer, port and the destructor are called by one thread at a time, and never from the
/// callback. The server has one thread that accepts and one for each connection, with a 64 KiB buffer on its stack. A
/// connection that has ended leaves a small record behind until stopServer. As many connections as the system allows
/// wait to be accepted, also while no descriptor or memory is free for them.
///
/// What it does is printed as lines that begin with "[LogServiceServer]"; a line that cannot be written is dropped.
///
/// There is no authentication and no encryption: listen on a loopback address or in a network that is trusted.
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
  /// addresses of the machine. A port above 32767 is given as static_cast<short>(port), and printed negative.
  ///
  /// There is no result. Where it fails, "[LogServiceServer]system socket(%s:%d) init failed!\n" is on standard error
  /// (after "Bind failed, error code: %d\n" on standard output for an address in use), and port() is 0; a server that
  /// runs already goes on. Where another server takes the port at the same moment, nothing is printed, and port() is 0
  /// all the same.
  void startServer(const std::string& ip, short port);

  /// Ends and joins every thread and closes the listening socket. Takes about a second, longer where a callback
  /// runs on or standard output or error takes no lines. Bytes that no thread has received yet are lost.
  void stopServer();

  /// The port that the server listens on; 0 when it does not.
  unsigned short port() const;

 private:
  std::atomic<bool> m_stop{false};
  std::uint64_t m_thread = 0;
  std::vector<unsigned long> m_clientThreads;

 public:
  /// Gets each received chunk of 1 to 65536 bytes as it came: where one send ended and the next began is not kept. The
  /// data is the library's, and valid during the call. Empty: what is received is discarded.
  ///
  /// Assigned before startServer, and left alone while the server runs. It runs on the thread of the connection, so
  /// calls for several connections overlap; the calls for one connection come one by one, in order, always on the
  /// same thread, which serves no other (so a thread_local object belongs to one connection, and ends with it). It must
  /// not throw.
  std::function<void(const char* data, int length)> m_callback;

  /// Gets each whole frame that a client sends, as ProtocolToString packs them, with the client's address as "IP:PORT".
  /// It is assigned and called as m_callback is. Both may be set: for each chunk m_callback comes first, and gets every
  /// byte.
  ///
  /// A connection whose stream breaks, as oxu/FrameReader.h says, is closed after its whole frames have been handed on
  /// and "[LogServiceServer]Broken frame from IP:PORT.\n" has been printed on standard error. So is, without that line,
  /// one for which memory runs out.
  std::function<void(const std::string& peer, const oxu::Frame& frame)> m_frameCallback;

  /// The longest frame that m_frameCallback takes, its length field included, in bytes. Each connection may hold as
  /// much in memory. Assigned before startServer.
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
