// Reading the command line: try  options --port=80 -vq --log in.txt
#include <cstdio>
#include <exception>
#include <string>

#include "oxu/Option.h"

int main(int argc, char** argv) {
  Option options;
  options.addOption("port", Option::RequiredValue, "the port to listen on");
  options.addOption("log", Option::OptionalValue, "log, to a file where one is named");
  options.addOption("v", Option::NoValue, "say more");
  options.addOption("q", Option::NoValue, "ask nothing");
  try {
    options.parse(argc, argv);
    std::string port;
    if (!options.getOptionValue("port", port)) port = "8080";
    std::string given;
    std::printf("port %s, verbose %d\n", port.c_str(), options.getOptionValue("v", given));
    for (const std::string& file : options.arguments()) std::printf("reads %s\n", file.c_str());
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    options.printUsage();
    return 2;
  }
}
