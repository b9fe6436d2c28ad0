// A host that captures what it prints itself. With the arguments IP PORT it sends that to a log service, in frames like
// those of the supervisor; without, to where its standard output led before.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "oxu/CApi.h"
#include "oxu/LogServiceClient.h"
#include "oxu/OutputRedirector.h"

static int sendFrame(LogServiceClient& client, const std::string& chunk) {
  char* data = nullptr;
  int length = 0;
  ProtocolToString(1, "redirect", chunk, &data, &length);
  const std::unique_ptr<char[]> frame(data);
  return client.send(frame.get(), static_cast<unsigned long>(length) + 4);
}

int main(int argc, char** argv) {
  LogServiceClient client;
  bool toService = argc == 3;
  if (toService && client.connect(argv[1], std::atoi(argv[2])) != 0) return 1;

  const int console = ::dup(STDOUT_FILENO);
  std::string text;
  std::atomic<bool> isComplete{false};
  oxu::OutputRedirector redirector;
  // Must not print: what it prints would come back to it.
  redirector.m_output_callback = [&](const std::string& chunk) {
    text += chunk;
    if (toService && sendFrame(client, chunk) < 0) {
      ::dprintf(console, "no connection any more\n");
      toService = false;
    }
    if (!toService) ::dprintf(console, "captured: %s", chunk.c_str());
    isComplete = text.find("last words\n") != std::string::npos;
  };
  redirector.m_forwarding = true;
  redirector.open();
  if (!redirector.isRedirected()) return 1;
  std::thread forwarder(oxu::OutputRedirector::sendOutToNetwork, &redirector);

  std::printf("printed\nlast words\n");
  std::fflush(stdout);
  while (!isComplete) std::this_thread::sleep_for(std::chrono::milliseconds(10));

  // The forwarder looks at the flag only when output comes.
  redirector.m_forwarding = false;
  std::printf("dropped\n");
  std::fflush(stdout);
  forwarder.join();
}
