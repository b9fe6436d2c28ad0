#include "Config.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

#include "oxu/IniFile.h"

namespace supervisor {

namespace {

const std::string kOwnSection = "supervisor";

// A section of the file, with checked access to its keys. Each message of a fault names file, section and key.
class Section {
 public:
  Section(IniFile& file, std::string path, std::string name)
      : m_file(file), m_path(std::move(path)), m_name(std::move(name)) {}

  [[noreturn]] void fail(const std::string& key, const std::string& fault) const {
    throw std::runtime_error(m_path + ": [" + m_name + "] " + key + ": " + fault);
  }

  void allowOnly(const std::vector<std::string>& keys) const {
    for (const auto& [key, value] : m_file[m_name]) {
      if (m_name.empty()) fail(key, "stands before the first section");
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) fail(key, "there is no such key");
      if ((m_name + value).find('\0') != std::string::npos) fail(key, "there is a NUL byte in it or in the name");
    }
  }

  std::string text(const std::string& key) const { return m_file.getString(m_name, key, ""); }

  bool flag(const std::string& key) const {
    std::string word = m_file.getString(m_name, key, "false");
    for (char& byte : word) byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
    if (word != "true" && word != "false" && word != "1" && word != "0")
      fail(key, "'" + word + "' is not true or false");
    return m_file.getBool(m_name, key, false);
  }

  common::Address address(const std::string& key) const {
    if (!m_file.has(m_name, key)) return {};
    try {
      return common::readAddress(text(key));
    } catch (const std::runtime_error& fault) {
      fail(key, fault.what());
    }
  }

  int count(const std::string& key, int least, int defaultValue) const {
    if (!m_file.has(m_name, key)) return defaultValue;
    const std::string digits = text(key);
    const int number = m_file.getInt(m_name, key, defaultValue);
    if (std::to_string(number) != digits || number < least) {
      fail(key, "'" + digits + "' is not a whole number from " + std::to_string(least) + " to 2147483647");
    }
    return number;
  }

  Show show(const std::string& key) const {
    const std::string word = m_file.getString(m_name, key, "all");
    if (word == "all") return Show::kAll;
    if (word == "ends") return Show::kEnds;
    if (word == "none") return Show::kNone;
    fail(key, "'" + word + "' is not all, ends or none");
  }

 private:
  IniFile& m_file;
  std::string m_path;
  std::string m_name;
};

// Reads the section of the supervisor itself, whose grace and restart become the defaults of the others.
void readOwnSection(const Section& section, Config& config, JobConfig& defaults) {
  section.allowOnly({"grace", "restart", "password_env", "report", "log_service"});
  defaults.grace = section.count("grace", 0, defaults.grace);
  defaults.restart = section.count("restart", 0, defaults.restart);
  config.report = section.text("report");
  config.logService = section.address("log_service");
  const std::string variable = section.text("password_env");
  const char* password = std::getenv(variable.c_str());
  if (!variable.empty() && password == nullptr) section.fail("password_env", "'" + variable + "' is not set");
  if (password != nullptr) config.password = password;
}

JobConfig readJob(const Section& section, const std::string& name, JobConfig job) {
  section.allowOnly({"command", "env", "workdir", "root", "restart", "grace", "buffer", "blocking", "show"});
  job.name = name;
  job.command = section.text("command");
  if (job.command.empty()) section.fail("command", "is missing");
  job.env = section.text("env");
  job.workdir = section.text("workdir");
  job.root = section.flag("root");
  job.blocking = section.flag("blocking");
  job.restart = section.count("restart", 0, job.restart);
  job.grace = section.count("grace", 0, job.grace);
  job.buffer = static_cast<unsigned long>(section.count("buffer", 1, static_cast<int>(job.buffer)));
  job.show = section.show("show");
  return job;
}

}  // namespace

Config readConfig(const std::string& path) {
  IniFile file;
  if (!file.load(path)) throw std::runtime_error(path + ": cannot be read");
  Config config;
  JobConfig defaults;
  if (file.has(kOwnSection)) readOwnSection(Section(file, path, kOwnSection), config, defaults);
  for (const std::string& name : file.sections()) {
    if (name != kOwnSection) config.jobs.push_back(readJob(Section(file, path, name), name, defaults));
  }
  if (config.jobs.empty()) throw std::runtime_error(path + ": there is no section with a command");
  return config;
}

}  // namespace supervisor
