/// The sending side of the log service: one TCP connection, and complete buffers over it.
///
/// | state     | reached by                    | connect                | send     | close           |
/// |-----------|-------------------------------|------------------------|----------|-----------------|
/// | created   | construction                  | 0, or -2               | -4       | true            |
/// | connected | connect returned 0            | the connection stays   | as below | true            |
/// | failed    | connect or send was below 0   | a new client is needed | as below | true            |
/// | closed    | close                         | -2                     | -4       | true, no effect |
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
  /// Creates the socket, with a send buffer of 256 KiB where the system allows that much, and binds it to a port of the
  /// system's choosing. Where that fails, "[LogServiceClient]Socket
  /// initialization failed. ret = %d\n" is printed with the errno number, and the operations fail.
  LogServiceClient();

  /// Closes the connection. What was sent is still delivered, unless the peer has sent something itself.
  ~LogServiceClient();

  LogServiceClient(const LogServiceClient&) = delete;
  LogServiceClient& operator=(const LogServiceClient&) = delete;

  /// Connects to `ip`:`port` within 3 seconds. An `ip` that is no IPv4 address ("localhost", "") means the local
  /// machine. Returns 0, or -2 after printing
  /// - "[LogServiceClient]Socket(%s:%d) connection failed. ret = %d\n" with the errno number: it failed at once;
  /// - "[LogServiceClient]Socket(%s:%d) connection failed  \n": it was refused later, nothing answered, or the
  ///   system connected the client to itself, as it may where no server listens on a port of the ephemeral range.
  ///
  /// After a -2 a new client is needed.
  int connect(const std::string& ip, int port);

  /// Sends all of the bytes, waiting for room up to 1 second before each piece. Returns `length` when they have been
  /// given to the system, which is not yet the peer. Otherwise returns, after printing,
  /// - -4 "[LogServiceClient]Socket not ready to write.\n": the send buffer was full for a second, or there is no
  ///   connection;
  /// - -4 "[LogServiceClient]Socket link broken.\n": the connection was reset;
  /// - -3 "[LogServiceClient]Failed to send data. ret = %d\n": a send failed or sent nothing, its result being given;
  ///   or `length` is above 2147483647 (ret = -1), in which case nothing is sent.
  ///
  /// After a failure an unknown number of the bytes has been sent, so that the peer cannot tell where the next message
  /// begins: use a new client.
  int send(const char* data, unsigned long length);

  /// Closes the connection. The client cannot be connected again.
  bool close();

 private:
  CSocket& m_socket;
};

#endif
