#include "common/Host.h"

#include <climits>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace common {

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

}  // namespace

int runHost(int argc, char** argv, Option& options, const char* help, const std::function<void()>& read,
            const std::function<int()>& run) {
  const std::string name = std::filesystem::path(argv[0]).filename();
  const auto fail = [&name](const std::string& fault, int status) {
    std::cerr << name << ": " << fault << std::endl;
    return status;
  };
  try {
    options.parse(argc, argv);
    std::string given;
    if (options.getOptionValue("help", given)) return std::cout << help, 0;
    for (const std::string& argument : options.arguments()) {
      throw std::runtime_error("'" + argument + "' belongs to no option.");
    }
    read();
  } catch (const std::out_of_range&) {
    return fail("An argument is empty. Try --help.", kExitUsage);
  } catch (const std::exception& fault) {
    return fail(fault.what() + std::string(" Try --help."), kExitUsage);
  }
  try {
    return run();
  } catch (const std::exception& fault) {
    return fail(fault.what(), kExitFailure);
  }
}

std::string requiredValue(const Option& options, const std::string& name) {
  std::string value;
  if (!options.getOptionValue(name, value)) throw std::runtime_error("Option --" + name + " is required.");
  return value;
}

oxu::json::Json number(unsigned long value) {
  if (value <= INT_MAX) return static_cast<int>(value);
  return static_cast<double>(value);
}

bool writeReport(const oxu::json::Json& report, const std::string& path, std::ostream& fallback) {
  if (!path.empty()) {
    std::ofstream file(path);
    if (file << report.toJson() << std::endl) return true;
    std::cerr << "the report cannot be written to " << path << " and follows here\n";
  }
  fallback << report.toJson() << std::endl;
  return path.empty() && fallback;
}

}  // namespace common
