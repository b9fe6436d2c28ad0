#include "everything.h"

bool earlyObjectWorks();
bool otherUnitWorks();

int main() {
  if (!earlyObjectWorks()) return 1;
  const bool isLogged = push_log(oxu::INFO, "%s", "hello");
  LogService service;
  service.startServer("127.0.0.1", 0);
  LogServiceClient client;
  const bool isSent = client.connect("127.0.0.1", service.port()) == 0 && client.send("hello", 5) == 5;
  return isLogged && isSent && otherUnitWorks() ? 0 : 1;
}
