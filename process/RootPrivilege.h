// Running commands as root through sudo.
#ifndef PROCESS_ROOTPRIVILEGE_H
#define PROCESS_ROOTPRIVILEGE_H

#include <string>

namespace oxu {

// The environment variable in which the password travels to the command.
extern const char* const kPasswordVariable;

// True when root is wanted and the caller's effective user is not root.
bool needRootPrivilege(bool need);

// The command with each of its ';'-separated parts run by sudo, which reads the password from
// kPasswordVariable.
std::string wrapForSudo(const std::string& command);

// Sets kPasswordVariable in the caller's environment and returns wrapForSudo(command).
std::string addRootPrivilege(const std::string& command, const std::string& password);

}  // namespace oxu

#endif
