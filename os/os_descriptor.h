// Descriptor numbers.
#ifndef OS_DESCRIPTOR_H
#define OS_DESCRIPTOR_H

// Moves a descriptor off the numbers of the standard ones, which a host that has closed its own leaves free: what
// such a host prints must not end up in a pipe or socket of the library. Returns the number that it has now, with
// close-on-exec set where it was moved. Best effort: where it cannot be moved it stays.
int os_descriptor_off_standard(int fd);

#endif
