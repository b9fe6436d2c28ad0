// Reading a configuration file with sections and defaults.
#include <cstdio>
#include <fstream>

#include "oxu/IniFile.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE-TO-WRITE-AND-READ\n", argv[0]);
    return 2;
  }
  std::ofstream(argv[1]) << "name = alpha   # a comment\n"
                            "[net]\n"
                            "port = 8080\n"
                            "tls  = True\n"
                            "rate = 2.5e3\n";
  IniFile file;
  if (!file.load(argv[1])) return 1;
  std::printf("%s listens on %d, tls %d\n", file.getString("", "name", "?").c_str(), file.getInt("net", "port", 80),
              file.getBool("net", "tls", false));
  std::printf("rate %g, burst %g by default\n", file.getDouble("net", "rate", 1), file.getDouble("net", "burst", 10));

  for (const auto& section : file.sections()) {
    for (const auto& [key, value] : file[section])
      std::printf("[%s] has %s: %s\n", section.c_str(), key.c_str(), value.c_str());
  }
  file["net"]["port"] = "9090";
  std::printf("%s", file.str().c_str());
}
