// An object with static storage duration that uses the library before main, and, where the library is static, before
// the static objects of the library's own files exist.
#include <sys/types.h>
#include <sys/wait.h>

#include "everything.h"

namespace {

std::string killLine;

class Early {
 public:
  Early() : m_process("", "PATH", "echo $SU_PASSWD$", "secret", nullptr, 64, false) {
    install_log_task();
    m_ini["section"]["key"] = "value";
    m_ini.show();
    m_options.printUsage();
    m_json["key"] = 0.5;
    m_service.startServer("127.0.0.1", 0);
  }
  ~Early() { uninstall_log_task(); }

  bool works() const {
    int status = -1;
    const bool isServing = m_service.port() != 0;
    const bool isLogged = push_log(oxu::INFO, "main has begun");
    const bool isKilled = oxu::StartProcess::kill(m_process.pid());
    ::waitpid(m_process.pid(), &status, 0);
    return isServing && isLogged && isKilled && status == 0 && m_json.toString() == "{\"key\":0.5}" &&
           killLine.find("echo 'secret' | sudo -S kill -9 -- -") != std::string::npos;
  }

 private:
  oxu::StartProcess m_process;
  oxu::ProcessMonitor m_monitor;  // begins and ends, and no more
  oxu::json::Json m_json;
  IniFile m_ini;
  Option m_options;
  LogService m_service;
};

Early early;

}  // namespace

// Both replace functions of the C library, so that the command which an ordinary user's kill runs can be read.
extern "C" int system(const char* line) {
  killLine = line;
  return 0;
}
extern "C" uid_t geteuid() noexcept { return 1000; }

bool earlyObjectWorks() { return early.works(); }
