/// The sending side of the log service: one TCP connection that takes complete buffers.
///
/// | state     | reached by                  | connect                | send     | close           |
/// |-----------|-----------------------------|------------------------|----------|-----------------|
/// | created   | construction                | 0, or -2               | -4       | true            |
/// | connected | connect returned 0          | 0 or -2, it stays      | as below | true            |
/// | failed    | connect or send failed      | a new client is needed | as below | true            |
/// | closed    | close                       | -2                     | -4       | true, no effect |
///
/// Threads: a client is used by one thread at a time.
///
/// Failures are printed on standard error as lines that begin with "[LogServiceClient]".
#ifndef OXU_LOGSERVICECLIENT_H
#define OXU_LOGSERVICECLIENT_H

#include <string>

#include "oxu/Export.h"
#include "oxu/Socket.h"

class OXU_EXPORT LogServiceClient {
 public:
  /// Creates the socket, with a send buffer of 256 KiB where the system allows that much, and binds it to a port that
  /// the system chooses.
  ///
  /// Where that fails, "[LogServiceClient]Socket initialization failed. ret = %d\n" is printed with the errno number,
  /// and connect and send fail.
  LogServiceClient();

  /// Closes the connection. What was sent is still delivered, unless the peer has sent something itself.
  ~LogServiceClient();

  LogServiceClient(const LogServiceClient&) = delete;
  LogServiceClient& operator=(const LogServiceClient&) = delete;

  /// Connects to `ip`:`port` within 3 seconds. An `ip` that is no IPv4 address ("localhost", "") means the local
  /// machine. Returns 0, or -2 after printing one of these:
  /// - "[LogServiceClient]Socket(%s:%d) connection failed. ret = %d\n" with the errno number: it failed at once;
  /// - "[LogServiceClient]Socket(%s:%d) connection failed  \n": it was refused later, nothing answered, or the
  ///   system connected the client to itself, as it may where no server listens on a port of the ephemeral range.
  ///
  /// After a -2 a new client is needed, unless this one was connected.
  int connect(const std::string& ip, int port);

  /// Sends all of the bytes, in pieces as room allows, and waits up to 1 second before each. Returns `length` when the
  /// system has taken all of them; the peer may not have received them yet. For a `length` of 0 it returns 0, in any
  /// state. Otherwise it returns, after printing:
  /// - -4 "[LogServiceClient]Socket not ready to write.\n": the send buffer was full for a second, or there is no
  ///   connection;
  /// - -4 "[LogServiceClient]Socket link broken.\n": the connection was reset;
  /// - -3 "[LogServiceClient]Failed to send data. ret = %d\n": a piece failed, or none of it was sent; `ret` is the
  ///   result of that piece. Also for a `length` above 2147483647 (ret = -1), of which nothing is sent.
  ///
  /// After any other failure an unknown number of the bytes has been sent, so the peer cannot tell where the next
  /// message begins: use a new client.
  int send(const char* data, unsigned long length);

  /// Closes the connection, as the destructor does. The client cannot be connected again. True.
  bool close();

 private:
  CSocket& m_socket;
};

#endif
