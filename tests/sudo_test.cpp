// Root privilege through the system's own sudo: a throw-away user with a password and a sudoers entry.
#include <grp.h>
#include <pwd.h>

#include <cstdlib>

#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"

namespace {

const std::string kPassword = "pass w0rd";

bool runs(const std::string& line) { return std::system(("{ " + line + "; } >/dev/null 2>&1").c_str()) == 0; }

class ThrowAwaySudoer {
 public:
  bool create() const {
    return runs("useradd --no-create-home --shell /bin/bash " + m_name) &&
           runs("echo '" + m_name + ":" + kPassword + "' | chpasswd") &&
           runs("umask 337 && echo '" + m_name + " ALL=(ALL) ALL' > " + m_sudoers + " && visudo -c");
  }

  ~ThrowAwaySudoer() { runs("rm -rf " + m_sudoers + " /run/sudo/ts/" + m_name + "; userdel --force " + m_name); }

  // Gives up the caller's own privileges.
  bool become() const {
    const passwd* entry = ::getpwnam(m_name.c_str());
    return entry != nullptr && ::setgroups(0, nullptr) == 0 && ::setgid(entry->pw_gid) == 0 &&
           ::setuid(entry->pw_uid) == 0;
  }

 private:
  std::string m_name = "oxutest" + std::to_string(::getpid());
  std::string m_sudoers = "/etc/sudoers.d/" + m_name;
};

TEST(RootPrivilege, IsObtainedWithTheRightPasswordAndOnlyWithThat) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make the user that this test needs";
  if (!runs("command -v sudo && command -v useradd")) GTEST_SKIP() << "sudo or useradd is missing";
  const ThrowAwaySudoer user;
  if (!user.create()) GTEST_SKIP() << "no user with a sudoers entry can be made here";
  ::setenv("OXU_KEPT", "kept", 1);
  for (const auto& row : {std::pair(std::string("wrong"), "try again"), {kPassword, "0\n<kept>"}}) {
    EXPECT_EQ(support::statusOfChild([&] {
                if (!user.become()) return false;
                support::SharedText output;
                const oxu::StartProcess process(
                    "", "", "id -u;printf '<%s>' $OXU_KEPT", row.first,
                    [&](const std::string& chunk) { output.append(chunk); }, 4096, true);
                return output.eventuallyContains(row.second) && ::waitpid(process.pid(), nullptr, 0) > 0;
              }),
              0)
        << row.first;
  }
  EXPECT_EQ(support::statusOfChild([&] {
              if (!user.become()) return false;
              const oxu::StartProcess process("", "", "sleep 1000", kPassword, nullptr, 4096, true);
              int status = 0;
              return oxu::StartProcess::kill(process.pid()) && ::waitpid(process.pid(), &status, 0) > 0 &&
                     WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
            }),
            0);
}

}  // namespace
