// Root privilege through the system's own sudo: a throw-away user with a password and a sudoers
// entry.

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"

namespace {

bool runs(const std::string& line) { return std::system((line + " >/dev/null 2>&1").c_str()) == 0; }

class ThrowAwaySudoer {
 public:
  static std::unique_ptr<ThrowAwaySudoer> create(std::string& whyNot) {
    auto user = std::unique_ptr<ThrowAwaySudoer>(new ThrowAwaySudoer);
    if (!runs("useradd --no-create-home --shell /bin/bash " + user->m_name)) {
      whyNot = "useradd failed";
      return nullptr;
    }
    user->m_exists = true;
    std::ofstream(user->sudoersFile()) << "Defaults:" << user->m_name << " !lecture\n"
                                       << user->m_name << " ALL=(ALL) ALL\n";
    ::chmod(user->sudoersFile().c_str(), 0440);
    if (runs("echo '" + user->m_name + ":" + password() + "' | chpasswd") && runs("visudo -c"))
      return user;
    whyNot = "chpasswd or visudo failed";
    return nullptr;
  }

  ~ThrowAwaySudoer() {
    ::unlink(sudoersFile().c_str());
    if (m_exists) runs("userdel --force " + m_name);
    ::rmdir(("/run/sudo/ts/" + m_name).c_str());
    ::unlink(("/run/sudo/ts/" + m_name).c_str());
  }

  static const char* password() { return "pass w0rd"; }

  bool becomeThisUser() const {
    const passwd* entry = ::getpwnam(m_name.c_str());
    return entry != nullptr && ::setgroups(0, nullptr) == 0 && ::setgid(entry->pw_gid) == 0 &&
           ::setuid(entry->pw_uid) == 0;
  }

 private:
  ThrowAwaySudoer() : m_name("oxutest" + std::to_string(::getpid())) {}
  std::string sudoersFile() const { return "/etc/sudoers.d/" + m_name; }

  std::string m_name;
  bool m_exists = false;
};

bool launchAsUser(const std::string& password, const std::string& expected) {
  support::SharedText output;
  oxu::StartProcess process(
      "", "", "id -u;printf '<%s>' \"$OXU_KEPT\"", password,
      [&](const std::string& chunk) { output += chunk; }, 4096, true);
  return output.eventuallyContains(expected) &&
         ::waitpid(process.pid(), nullptr, 0) == process.pid();
}

TEST(RootPrivilege, IsObtainedWithTheRightPasswordAndOnlyWithThat) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make the user that this test needs";
  if (!runs("command -v sudo") || !runs("command -v useradd"))
    GTEST_SKIP() << "sudo or useradd is missing";
  std::string whyNot;
  const auto user = ThrowAwaySudoer::create(whyNot);
  if (!user) GTEST_SKIP() << whyNot;
  ::setenv("OXU_KEPT", "kept", 1);
  const auto launchWith = [&](const std::string& password, const std::string& expected) {
    return support::statusOfChild(
        [&] { return user->becomeThisUser() && launchAsUser(password, expected); });
  };
  EXPECT_EQ(launchWith("wrong", "Sorry, try again."), 0);
  EXPECT_EQ(launchWith(ThrowAwaySudoer::password(), "0\n<kept>"), 0);
  // The same group kill through sudo.
  EXPECT_EQ(support::statusOfChild([&] {
              if (!user->becomeThisUser()) return false;
              oxu::StartProcess process("", "", "sleep 1000", ThrowAwaySudoer::password(), nullptr,
                                        4096, true);
              int status = 0;
              return oxu::StartProcess::kill(process.pid()) &&
                     ::waitpid(process.pid(), &status, 0) == process.pid() && WIFSIGNALED(status);
            }),
            0);
}

}  // namespace
