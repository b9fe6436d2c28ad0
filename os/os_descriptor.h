// Making and closing descriptors. The numbers 0 to 2 are free in a host that has closed its standard descriptors. What
// such a host prints must not end up in a pipe or socket of the library. Every function may be called from any thread.
#ifndef OS_DESCRIPTOR_H
#define OS_DESCRIPTOR_H

// Moves a descriptor off the numbers 0 to 2. Returns the new descriptor, which is close-on-exec. A descriptor that has
// another number, or that cannot be moved, is returned as it is.
int os_descriptor_off_standard(int fd);

// Closes a descriptor unless it is -1, and sets it to -1. Leaves errno alone.
void os_descriptor_close(int& fd);

// Makes a pipe whose ends are close-on-exec and above 2, each where that is possible. False, with errno telling why,
// when no pipe can be made.
bool os_descriptor_pipe(int (&fds)[2]);

#endif
