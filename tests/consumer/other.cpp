#include "everything.h"

bool otherUnitWorks() {
  oxu::json::Json json;
  json["key"] = 1;
  IniFile file;
  file["section"]["key"] = json.toString();
  Option options;
  options.addOption("name", Option::NoValue, "");
  OS::TRecursiveMutex mutex;
  const oxu::StartProcess idle;
  const oxu::ProcessMonitor monitor;
  const oxu::OutputRedirector redirector;
  auto* socket = new CSocket;
  char* frame = nullptr;
  int length = 0;
  ProtocolToString(1, "name", "body", &frame, &length);
  delete[] frame;
  return socket->releaseRef() == 0 && length == 11 && file.getString("section", "key", "") == "{\"key\":1}" &&
         idle.pid() == -1 && !redirector.isRedirected();
}
