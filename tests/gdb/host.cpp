// Values for gdb to print, once it has stopped in look.
#include "log/LogItem.h"
#include "log/RingBuffer.h"
#include "oxu/IniFile.h"
#include "oxu/Json.h"
#include "oxu/Option.h"

namespace {

void look() {}

void fill(oxu::json::Json& json, oxu::json::Json& list, IniFile& ini, Option& option) {
  json["bool"] = true;
  json["double"] = 1.5;
  json["list"][2] = "a \"text\" beyond the string's own room";
  json["object"]["null"] = oxu::json::Json::Null;
  for (int i = 0; i < 300; ++i) list[i] = i;
  ini["web"]["port"] = "80";
  ini["empty"];
  option.addOption("port", Option::RequiredValue, "");
  char name[] = "host", value[] = "--port=80";
  char* arguments[] = {name, value};
  option.parse(2, arguments);
}

}  // namespace

int main() {
  oxu::json::Json json, list;
  IniFile ini;
  Option option;
  fill(json, list, ini, option);
  CRingBuffer<oxu::LogItem> ring(4);
  oxu::LogItem item;
  std::memcpy(item.text, "text", sizeof "text");
  while (ring.push(item)) item.level = oxu::ERROR;
  look();
}
