// Sending frames to a log service, beside a bare socket and a bare reader thread with the same buffers.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "oxu/CApi.h"
#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"

namespace {

constexpr int kBufferBytes = 8192;
constexpr int kClientSendBufferBytes = 256 << 10;
constexpr int kFramesARound = 2000;

void setBuffers(int fd, int sendBytes) {
  ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBytes, sizeof sendBytes);
  ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
}

void waitFor(const std::atomic<long>& received, long bytes) {
  while (received < bytes) std::this_thread::yield();
}

void finish(benchmark::State& state, long frame) {
  state.SetBytesProcessed(state.iterations() * kFramesARound * frame);
}

void BM_SendBareSocket(benchmark::State& state) {
  const std::string frame(static_cast<std::size_t>(state.range(0)), 'x');
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  const int client = ::socket(AF_INET, SOCK_STREAM, 0);
  setBuffers(listener, kBufferBytes);
  ::bind(listener, reinterpret_cast<sockaddr*>(&address), length);
  ::listen(listener, 1);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  setBuffers(client, kClientSendBufferBytes);
  if (::connect(client, reinterpret_cast<sockaddr*>(&address), length) != 0) state.SkipWithError("connect");
  const int server = ::accept(listener, nullptr, nullptr);
  setBuffers(server, kBufferBytes);
  std::atomic<long> received{0};
  std::thread reader([&] {
    static char buffer[65536];
    while (const ssize_t size = ::recv(server, buffer, sizeof buffer, 0)) received += size;
  });
  for (auto _ : state) {
    received = 0;
    for (int i = 0; i < kFramesARound; ++i) {
      if (::send(client, frame.data(), frame.size(), 0) < 0) state.SkipWithError("send");
    }
    waitFor(received, kFramesARound * static_cast<long>(frame.size()));
  }
  ::close(client);
  reader.join();
  ::close(server);
  ::close(listener);
  finish(state, static_cast<long>(frame.size()));
}
BENCHMARK(BM_SendBareSocket)->Arg(16384)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SendLogServiceClient(benchmark::State& state) {
  constexpr long kHeaderBytes = 4 + 1 + 2 + 4;
  const std::string body(static_cast<std::size_t>(state.range(0) - kHeaderBytes), 'x');
  std::atomic<long> received{0};
  LogService service;
  service.m_callback = [&](const char*, int length) { received += length; };
  service.startServer("127.0.0.1", 0);
  LogServiceClient client;
  if (client.connect("127.0.0.1", service.port()) != 0) state.SkipWithError("connect");
  for (auto _ : state) {
    received = 0;
    for (int i = 0; i < kFramesARound; ++i) {
      char* frame = nullptr;
      int length = 0;
      ProtocolToString(1, "name", body, &frame, &length);
      if (client.send(frame, static_cast<unsigned long>(length) + 4) < 0) state.SkipWithError("send");
      delete[] frame;
    }
    waitFor(received, kFramesARound * state.range(0));
  }
  client.close();
  service.stopServer();
  finish(state, state.range(0));
}
BENCHMARK(BM_SendLogServiceClient)->Arg(16384)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
