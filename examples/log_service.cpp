// A log service and a client of it, in one process.
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "oxu/LogService.h"
#include "oxu/LogServiceClient.h"

int main() {
  std::mutex mutex;
  std::string received;
  LogService service;
  // Runs on the thread of the connection; the calls of several connections overlap.
  service.m_callback = [&](const char* data, int length) {
    const std::lock_guard<std::mutex> lock(mutex);
    received.append(data, static_cast<std::size_t>(length));
  };
  service.startServer("127.0.0.1", 0);  // a port of the system's choosing
  if (service.port() == 0) return 1;

  const std::string text = "two lines\nof text\n";
  LogServiceClient client;
  if (client.connect("127.0.0.1", service.port()) != 0) return 1;
  const int sent = client.send(text.data(), text.size());

  // The system has taken the bytes; the service gets them a moment later.
  for (;; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (received.size() == text.size()) break;
  }
  client.close();
  service.stopServer();
  std::printf("sent %d bytes, received: %s", sent, received.c_str());
}
