// What gdb is to show: at stop(), in the frame above.
#include "log/LogItem.h"
#include "log/RingBuffer.h"
#include "oxu/IniFile.h"
#include "oxu/Json.h"
#include "oxu/Option.h"

[[gnu::noinline]] void stop() { asm volatile(""); }

int main() {
  oxu::json::Json json;
  json["list"][1] = 2.5;
  json["text"] = "value";
  json["yes"] = true;
  IniFile ini;
  ini["net"]["port"] = "80";
  Option options;
  options.addOption("port", Option::RequiredValue, "the port");
  char program[] = "host", argument[] = "--port=81";
  char* arguments[] = {program, argument};
  options.parse(2, arguments);
  CRingBuffer<oxu::LogItem> ring(8);
  for (const char* text : {"taken", "first", "second"}) {
    oxu::LogItem item;
    std::snprintf(item.text, sizeof item.text, "%s", text);
    ring.push(item);
  }
  oxu::LogItem taken;
  ring.pop(taken);
  stop();
  return json.size() == 3 ? 0 : 1;
}
