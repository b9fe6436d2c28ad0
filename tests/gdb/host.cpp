// Values for gdb to print, once it has stopped in look.
#include "log/LogItem.h"
#include "log/RingBuffer.h"
#include "oxu/IniFile.h"
#include "oxu/Json.h"
#include "oxu/Option.h"

static void look() {}

int main() {
  oxu::json::Json json, list, deep;
  json["bool"] = true;
  json["double"] = 1.5;
  json["list"][2] = "a \"text\" beyond the string's own room";
  json["object"]["null"] = oxu::json::Json::Null;
  for (int i = 0; i < 40000; ++i) list[i / 200][i % 200] = i;
  oxu::json::Json *inObject = &json["bool"], *inArray = &list[0], *innermost = &deep;
  for (int i = 0; i < 100; ++i) innermost = &(*innermost)[0];

  IniFile ini;
  ini["web"]["port"] = "80";
  ini["empty"];

  Option option;
  option.addOption("port", Option::RequiredValue, "");
  char name[] = "host", value[] = "--port=80", file[] = "file";
  char* arguments[] = {name, value, file};
  option.parse(3, arguments);

  CRingBuffer<oxu::LogItem> ring(4);
  oxu::LogItem item;
  std::memcpy(item.text, "text", sizeof "text");
  while (ring.push(item)) item.level = oxu::ERROR;
  look();
  return inObject == inArray;
}
