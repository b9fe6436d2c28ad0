#include "oxu/Socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "os/os_print.h"
#include "os/os_socket.h"
#include "os/os_thread.h"

namespace {

constexpr int kTimeoutMs = 500;
constexpr int kBufferBytes = 8192;

// A text that is no address stands for any address. inet_addr returns the same for it as for the broadcast address,
// which therefore stands for any address, too.
sockaddr_in makeAddress(const std::string& ip, unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  const in_addr_t number = ::inet_addr(ip.c_str());
  address.sin_addr.s_addr = number == INADDR_NONE ? htonl(INADDR_ANY) : number;
  return address;
}

void readAddress(const sockaddr_in& address, std::string& ip, unsigned short& port) {
  ip = ::inet_ntoa(address.sin_addr);
  port = ntohs(address.sin_port);
}

RT_MODE orDefault(RT_MODE mode) { return mode == 0 ? get_default_rt_mode() : mode; }

// Repeats the call until no signal interrupts it.
template <typename Call>
int retried(const Call& call) {
  int result = -1;
  do {
    result = call();
  } while (result == -1 && os_socket_get_errno_code() == EINTR);
  return result;
}

// `get` is os_socket_get_peer_name or os_socket_get_sock_name.
template <typename Get>
bool readName(const Get& get, int fd, RT_MODE mode, std::string& ip, unsigned short& port) {
  sockaddr_in address = makeAddress("", 0);
  socklen_t length = sizeof address;
  if (get(fd, &address, &length, mode) == -1) return false;
  readAddress(address, ip, port);
  return true;
}

// Closes a handle that no socket took, if any; false for the caller to return.
bool discard(int fd, RT_MODE mode) {
  if (fd != -1) os_socket_close(fd, mode);
  return false;
}

}  // namespace

bool ISocketStub::queryInterface(const char* name, void** out) {
  if (std::strcmp(name, "IBase") != 0 && std::strcmp(name, "ISocket") != 0) return false;
  *out = this;
  addRef();
  return true;
}

std::uint64_t ISocketStub::addRef() { return os_thread_sync_fetch_add(&m_refCount); }

// The thread that takes the count to 0 is the only one that still knows the object.
std::uint64_t ISocketStub::releaseRef() {
  const std::uint64_t references = os_thread_sync_fetch_sub(&m_refCount);
  if (references == 0) {
    onFinalRelease();
    delete this;
  }
  return references;
}

CSocket::CSocket() { os_socket_init_library(); }

CSocket::~CSocket() { os_socket_clear_library(); }

void CSocket::onFinalRelease() { close(); }

void CSocket::onSocketAttach() {}

void CSocket::onSocketDetach() {}

// Settings that fail are passed over: on a handle that does not work, every operation fails.
bool CSocket::attach(int fd, RT_MODE mode) {
  if (m_fd != -1 || fd == -1) return false;
  m_fd = fd;
  m_mode = orDefault(mode);
  os_socket_set_send_timeout(fd, kTimeoutMs, m_mode);
  os_socket_set_recv_timeout(fd, kTimeoutMs, m_mode);
  os_socket_set_sock_opt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes, m_mode);
  os_socket_set_sock_opt(fd, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof kBufferBytes, m_mode);
  const int reuse = 1;
  os_socket_set_sock_opt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse, m_mode);
  os_socket_disable_udp_unreached_report(fd);
  std::uint64_t one = 1;
  os_socket_ioctl(fd, FIONBIO, &one, m_mode);
  onSocketAttach();
  return true;
}

int CSocket::dettach() {
  // First, so that the derived class can still use the handle.
  onSocketDetach();
  const int fd = m_fd;
  m_fd = -1;
  return fd;
}

bool CSocket::initSocket(__socket_type type, const std::string& ip, unsigned short port, RT_MODE mode) {
  m_mode = orDefault(mode);
  const int fd = os_socket(AF_INET, type, 0, m_mode);
  if (fd == -1) return false;
  if (!attach(fd, mode)) return discard(fd, m_mode);
  return bind(ip, port);
}

bool CSocket::close() {
  os_socket_close(dettach(), m_mode);
  return true;
}

bool CSocket::bind(const std::string& ip, unsigned short port) {
  const sockaddr_in address = makeAddress(ip, port);
  if (os_socket_bind(m_fd, &address, sizeof address, m_mode) != -1) return true;
  os_print_now(stdout, "Bind failed, error code: %d\n", os_socket_get_errno_code());
  return false;
}

bool CSocket::listen(int backlog) { return os_socket_listen(m_fd, backlog, m_mode) != -1; }

bool CSocket::connect(const std::string& ip, unsigned short port) {
  const sockaddr_in address = makeAddress(ip, port);
  if (os_socket_connect(m_fd, &address, sizeof address, m_mode) != -1) return true;
  const int error = os_socket_get_errno_code();
  return error == EINPROGRESS || error == EAGAIN;
}

// A failed accept gives -1, which attach refuses.
bool CSocket::accept(ISocket*& client, std::string& ip, unsigned short& port, RT_MODE mode) {
  if (client == nullptr) return false;
  sockaddr_in address = makeAddress("", 0);
  socklen_t length = sizeof address;
  const int fd = retried([&] { return os_socket_accept(m_fd, &address, &length, m_mode); });
  if (!client->attach(fd, mode)) return discard(fd, m_mode);
  readAddress(address, ip, port);
  return true;
}

int CSocket::send(const void* data, int length, int flags) {
  return retried([&] { return os_socket_send(m_fd, data, length, flags, m_mode); });
}

int CSocket::receive(void* data, int length, int flags) {
  return retried([&] { return os_socket_recv(m_fd, data, length, flags, m_mode); });
}

int CSocket::sendTo(const void* data, int length, const std::string& ip, unsigned short port, int flags) {
  const sockaddr_in address = makeAddress(ip, port);
  return retried([&] { return os_socket_send_to(m_fd, data, length, flags, &address, sizeof address, m_mode); });
}

int CSocket::receiveFrom(void* data, int length, std::string& ip, unsigned short& port, int flags) {
  sockaddr_in address = makeAddress("", 0);
  socklen_t addressLength = sizeof address;
  const int size =
      retried([&] { return os_socket_recv_from(m_fd, data, length, flags, &address, &addressLength, m_mode); });
  if (size >= 0) readAddress(address, ip, port);
  return size;
}

bool CSocket::getPeerName(std::string& ip, unsigned short& port) {
  return readName(os_socket_get_peer_name, m_fd, m_mode, ip, port);
}

bool CSocket::getSockName(std::string& ip, unsigned short& port) {
  return readName(os_socket_get_sock_name, m_fd, m_mode, ip, port);
}

bool CSocket::getSockopt(int level, int name, void* value, unsigned int* length) {
  return os_socket_get_sock_opt(m_fd, level, name, value, length, m_mode);
}

bool CSocket::setSockopt(int level, int name, const void* value, unsigned int length) {
  return os_socket_set_sock_opt(m_fd, level, name, value, length, m_mode);
}
