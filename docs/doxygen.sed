# What doxygen reads instead of the files themselves.
# The comment that opens a header is that of the file, not of the first thing declared in it.
1s|^/// |/// @file\n&|
1s|^/\*\*$|& @file|
# The links of the pages lead into the reference, or, to what is not in it, nowhere.
s|\[([^]]*)\]\(\.\./include/(oxu/[A-Za-z]*\.h)\)|[\1](@ref \2)|g
s|\[([^]]*)\]\(\.\./[^)]*\)|\1|g
