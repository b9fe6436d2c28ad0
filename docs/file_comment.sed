# For doxygen: makes the comment that opens a header that of the file, not of the first thing declared in it.
1s|^/// |/// @file\n&|
1s|^/\*\*$|& @file|
