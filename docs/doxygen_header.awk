# What doxygen reads of a header. What is added takes the place of an empty line, so that the lines keep their numbers.

# The comment that opens it is that of the file, not of the first thing declared in it.
FNR == 1 && /^\/\/\/ / { print "/// @file"; added = 1 }
FNR == 1 && /^\/\*\*$/ { $0 = $0 " @file" }

/^$/ && added { added = 0; next }
/^$/ { empty = 1; next }
# A class of the header's name has that comment too.
empty {
  print /^class OXU_EXPORT / && FILENAME ~ "/" $3 "\\.h$" ? "/// @copydoc oxu/" $3 ".h" : ""
  empty = 0
}

# A template that a class declares and its source defines: the list of members would have a link to nowhere.
/^  template <class [A-Za-z]+>$/ { template = $0; next }
template != "" {
  if (/^  struct [A-Za-z]+;$/) template = $0 = ""
  print template
  template = ""
}

# Two dashes before a name would become one long dash.
/\/\/\// { gsub(/--[a-z]/, "\\\\&") }

{ print }
