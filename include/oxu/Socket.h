/// A reference-counted IPv4 socket behind an abstract interface.
///
/// | state | reached by                         | attach, initSocket       | close           | other operations   |
/// |-------|------------------------------------|--------------------------|-----------------|--------------------|
/// | empty | construction, dettach, close       | take a handle            | true, no effect | fail               |
/// | holds | attach, initSocket, being accepted | false, the first is kept | back to empty   | work on the handle |
///
/// Every handle that is taken over becomes non-blocking, and gets send and receive time-outs of 500 ms, 8192-byte
/// buffers and address reuse. Handles that are made here are close-on-exec.
///
/// Addresses are texts like "127.0.0.1". A text that is no IPv4 address, such as a host name or the empty text, and
/// "255.255.255.255" stand for any address (0.0.0.0).
///
/// Ownership: an object made by `new` has one reference; the last releaseRef closes the handle and deletes the object.
/// An object held otherwise (as a member, by a smart pointer) is closed before its end: the destructor leaves the
/// handle open.
///
/// Threads: addRef and releaseRef may be called from any thread. Everything else is used by one thread at a time.
///
/// No operation raises SIGPIPE.
#ifndef OXU_SOCKET_H
#define OXU_SOCKET_H

#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "oxu/Export.h"

/// The mode of a socket call. It selects nothing; 0 stands for the default mode.
using RT_MODE = std::uint32_t;

class OXU_EXPORT IBase {
 public:
  /// For "IBase" and "ISocket": stores the object in `*out`, adds a reference for the caller, and returns true.
  /// False for any other name; `*out` is left as it was.
  virtual bool queryInterface(const char* name, void** out) = 0;

  /// Both return the number of references after the change. At 0 the object is gone.
  virtual std::uint64_t addRef() = 0;
  virtual std::uint64_t releaseRef() = 0;

 protected:
  ~IBase() = default;
};

/// What can be done with a socket.
class OXU_EXPORT ISocket : public IBase {
 public:
  /// Takes over an open handle and configures it. False for -1, and where a handle is held already: nothing changes.
  virtual bool attach(int fd, RT_MODE mode) = 0;

  /// Gives the handle to the caller without closing it; -1 when there is none.
  virtual int dettach() = 0;

  /// Creates a handle and binds it; port 0 lets the system choose. False when that fails. After a failed bind, which
  /// prints "Bind failed, error code: %d\n" on standard output, the socket still holds the handle.
  virtual bool initSocket(__socket_type type, const std::string& ip, unsigned short port, RT_MODE mode) = 0;

  /// Closes the handle, if any. Always true.
  virtual bool close() = 0;

  /// False when they fail. A failed bind prints the line of initSocket.
  virtual bool bind(const std::string& ip, unsigned short port) = 0;
  virtual bool listen(int backlog) = 0;

  /// Begins to connect. True when the connection is established or under way (poll(2) on CSocket::handle() and SO_ERROR
  /// tell which); false when it failed at once.
  virtual bool connect(const std::string& ip, unsigned short port) = 0;

  /// Takes a pending connection into `client`, an empty socket of the caller, and stores the peer's address. False
  /// - when no connection is pending, and for a null client;
  /// - for a client that holds a handle: the connection is closed;
  /// - after 100 ms, when no descriptor or memory is free: the connection goes on waiting.
  virtual bool accept(ISocket*& client, std::string& ip, unsigned short& port, RT_MODE mode) = 0;

  /// The next four return the number of bytes that were sent or received; 0 from a receive is the end of the stream.
  /// They return -1 for a failure, with the reason in errno: EAGAIN where there is nothing to receive, or no room, at
  /// the moment. A signal does not interrupt them. receiveFrom stores the sender's address, unless it returns -1.
  virtual int send(const void* data, int length, int flags) = 0;
  virtual int receive(void* data, int length, int flags) = 0;
  virtual int sendTo(const void* data, int length, const std::string& ip, unsigned short port, int flags) = 0;
  virtual int receiveFrom(void* data, int length, std::string& ip, unsigned short& port, int flags) = 0;

  /// Store the address of the peer, or the socket's own. False when there is none; nothing is stored then.
  virtual bool getPeerName(std::string& ip, unsigned short& port) = 0;
  virtual bool getSockName(std::string& ip, unsigned short& port) = 0;

  /// As getsockopt(2) and setsockopt(2) do; true on success.
  virtual bool getSockopt(int level, int name, void* value, unsigned int* length) = 0;
  virtual bool setSockopt(int level, int name, const void* value, unsigned int length) = 0;

 protected:
  ~ISocket() = default;
};

/// A socket with a reference count, which begins at 1.
class OXU_EXPORT ISocketStub : public ISocket {
 public:
  bool queryInterface(const char* name, void** out) override;
  std::uint64_t addRef() override;
  std::uint64_t releaseRef() override;

  ISocketStub(const ISocketStub&) = delete;
  ISocketStub& operator=(const ISocketStub&) = delete;

 protected:
  ISocketStub() = default;
  virtual ~ISocketStub() = default;

  /// Runs when the last reference has gone, right before the object is deleted.
  virtual void onFinalRelease() = 0;

 private:
  std::uint64_t m_refCount = 1;
};

/// A socket over a handle of the system.
class OXU_EXPORT CSocket : public ISocketStub {
 public:
  CSocket();

  bool attach(int fd, RT_MODE mode) override;
  int dettach() override;
  bool initSocket(__socket_type type, const std::string& ip, unsigned short port, RT_MODE mode) override;
  bool close() override;
  bool bind(const std::string& ip, unsigned short port) override;
  bool listen(int backlog) override;
  bool connect(const std::string& ip, unsigned short port) override;
  bool accept(ISocket*& client, std::string& ip, unsigned short& port, RT_MODE mode) override;
  int send(const void* data, int length, int flags) override;
  int receive(void* data, int length, int flags) override;
  int sendTo(const void* data, int length, const std::string& ip, unsigned short port, int flags) override;
  int receiveFrom(void* data, int length, std::string& ip, unsigned short& port, int flags) override;
  bool getPeerName(std::string& ip, unsigned short& port) override;
  bool getSockName(std::string& ip, unsigned short& port) override;
  bool getSockopt(int level, int name, void* value, unsigned int* length) override;
  bool setSockopt(int level, int name, const void* value, unsigned int length) override;
  ~CSocket() override;

  /// -1 when none is held.
  int handle() const { return m_fd; }
  RT_MODE mode() const { return m_mode; }

 protected:
  /// Closes the handle.
  void onFinalRelease() override;

  /// Runs when a handle has been attached and configured. Does nothing unless a derived class overrides it.
  virtual void onSocketAttach();

  /// Runs right before the handle, if any, is given up. Does nothing unless a derived class overrides it.
  virtual void onSocketDetach();

 private:
  int m_fd = -1;
  RT_MODE m_mode = 2;
};

#endif
