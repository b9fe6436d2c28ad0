// Descriptor numbers.
#ifndef OS_DESCRIPTOR_H
#define OS_DESCRIPTOR_H

// Moves a descriptor off the numbers of the standard ones, which a host that has closed its own leaves free: what
// such a host prints must not end up in a pipe or socket of the library. Returns the number that it has now, with
// close-on-exec set where it was moved. Best effort: where it cannot be moved it stays.
int os_descriptor_off_standard(int fd);

// Closes a descriptor unless it is -1, and sets it to -1. Leaves errno alone.
void os_descriptor_close(int& fd);

// Makes a pipe for this process alone: both ends are moved off the standard numbers and close-on-exec, best effort.
// False, with errno telling why, when there is no pipe.
bool os_descriptor_pipe(int (&fds)[2]);

#endif
