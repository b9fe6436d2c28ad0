// Building, reading, editing and writing a JSON value.
#include <cstdio>
#include <stdexcept>

#include "oxu/Json.h"

using oxu::json::Json;

int main() {
  Json status;
  status["host"] = "alpha";
  status["load"][2] = 0.25;  // an array, filled up with null
  status["workers"].append(Json::Object);
  status["workers"][0]["pid"] = 4711;
  std::printf("%s\n", status.toString().c_str());

  const int pid = status["workers"][0]["pid"];
  std::printf("pid %d, %d members\n", pid, status.size());

  // Reading through a const reference creates nothing.
  const Json& view = status;
  std::printf("memory is %s\n", view["memory"].isNull() ? "unknown" : "known");

  try {
    view["host"].asInt();
  } catch (const std::logic_error& error) {
    std::printf("%s\n", error.what());
  }

  status["load"].remove(0);
  status["previous"] = status;  // a copy of what it was
  std::printf("%s\n", status.toString().c_str());

  // What comes from outside is written by toJson, which escapes it.
  Json report;
  report["said \"hi\""] = "line\nfeed";
  report["third"] = 1.0 / 3;
  std::printf("%s\n", report.toJson().c_str());
}
