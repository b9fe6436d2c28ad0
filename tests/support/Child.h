// Runs a body in a forked child, for what must not happen to the test program itself.
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <functional>

namespace support {

// Waits for the child, which SIGALRM ends after a minute. An expectation that fails in the body fails the test.
void inChild(const std::function<void()>& body);

// The same with a pipe for the child's standard output, of which the body gets the read end.
void inChildWithPipe(const std::function<void(int readEnd)>& body);

// For such a child: fills its standard output, a pipe cut to 4096 bytes, so that the next write waits for a reader.
void fillStandardOutput();

}  // namespace support

#endif
