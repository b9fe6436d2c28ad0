// A second translation unit with all headers. It uses what early.cpp does not.
#include "everything.h"

bool otherUnitWorks() {
  OS::TRecursiveMutex mutex;
  const oxu::OutputRedirector redirector;
  const oxu::FrameReader reader;
  LogServiceClient client;
  auto* socket = new CSocket;
  char* frame = nullptr;
  int length = 0;
  ProtocolToString(1, "name", "body", &frame, &length);
  delete[] frame;
  return socket->releaseRef() == 0 && client.close() && length == 11 && !redirector.isRedirected() &&
         !reader.isBroken();
}
