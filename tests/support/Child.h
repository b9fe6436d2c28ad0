// Runs a body in a forked child, for what must not happen to the test program itself.
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <functional>

namespace support {

// Waits for the child, which a watchdog ends after a minute. What the body expects in vain is a failure of the test.
void inChild(const std::function<void()>& body);

// The same with a pipe for the child's standard output, of which the body gets the read end.
void inChildWithPipe(const std::function<void(int readEnd)>& body);

// For such a child: its standard output takes nothing more, until some of the 4096 bytes in it are read.
void fillStandardOutput();

}  // namespace support

#endif
