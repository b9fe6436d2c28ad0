# What doxygen reads of a header.

# The comment that opens it is that of the file, not of the first thing declared in it; a class of its name has it too.
FNR == 1 && /^\/\/\/ / { print "/// @file" }
FNR == 1 && /^\/\*\*$/ { $0 = $0 " @file" }
/^class OXU_EXPORT / && FILENAME ~ "/" $3 "\\.h$" { print "/// @copydoc oxu/" $3 ".h" }

# A template that a class declares and its source defines: the list of members would have a link to nowhere.
/^  template <class [A-Za-z]+>$/ { template = $0; next }
template != "" && /^  struct [A-Za-z]+;$/ { template = ""; next }
template != "" { print template; template = "" }

# Two dashes before a name would become one long dash.
/\/\/\// { gsub(/--[a-z]/, "\\\\&") }

{ print }
