#include "everything.h"

bool otherUnitWorks();

int main() {
  install_log_task();
  const bool isLogged = push_log(oxu::INFO, "%s", "hello");
  uninstall_log_task();

  LogService service;
  service.startServer("127.0.0.1", 0);
  LogServiceClient client;
  const bool isSent = client.connect("127.0.0.1", service.port()) == 0 && client.send("hello", 5) == 5;
  return isLogged && isSent && otherUnitWorks() ? 0 : 1;
}
