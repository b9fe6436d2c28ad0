# What doxygen reads of a header. The comment that opens it is that of the file, not of the first thing declared in it.
1s|^/// |/// @file\n&|
1s|^/\*\*$|& @file|
# A template that a class declares and its source defines: the list of members would have a link to nowhere.
/^  template <class [A-Za-z]+>$/{N;s/.*\n  struct [A-Za-z]+;$/\n/}
