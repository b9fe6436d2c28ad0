# What doxygen reads of a page: headings get names, links to pages, headings, headers and pictures lead to these within
# the reference, and of a link to any other file the text remains. Code stays as it is.

function file_name(path) {
  sub(/.*\//, "", path)
  return path
}

# The name of a page, for references.
function page_name(path) {
  path = file_name(path)
  sub(/\.md$/, "", path)
  return path == "README" ? "index" : tolower(path)
}

# A heading's anchor, as it is called where the repository is shown.
function anchor(heading) {
  heading = tolower(heading)
  gsub(/[^a-z0-9_ -]/, "", heading)
  gsub(/ /, "-", heading)
  return heading
}

# The text is on one line and without code, as references are.
function reference(text, target) {
  gsub(/\n */, " ", text)
  gsub(/`/, "", text)
  return "[" text "](@ref " target ")"
}

function link(text, target,    page, heading) {
  page = heading = target
  sub(/#.*/, "", page)
  if (!sub(/.*#/, "-", heading)) heading = ""
  if (target ~ /^[a-z]+:/) return "[" text "](" target ")"
  if (page ~ /\.svg$/) return "[" text "](" file_name(page) ")"
  if (page ~ /include\/oxu\/.*\.h$/) return reference(text, "oxu/" file_name(page))
  if (page == "") page = FILENAME
  else if (page !~ /^(\.\.\/|docs\/)?[A-Za-z-]*\.md$/) return text
  return reference(text, page_name(page) heading)
}

# Links and bold text may begin on one line and end on the next.
function print_prose(    bold, parts) {
  # Pictures in HTML lie beside the pages there, and all are for a light and a dark page.
  gsub(/="(docs\/)?images\//, "=\"", prose)
  gsub(/<\/?(picture|source)[^>]*>/, "", prose)
  # Bold text that begins with code would keep its asterisks.
  while (match(prose, /\*\*`[^*]*\*\*/)) {
    bold = substr(prose, RSTART + 2, RLENGTH - 4)
    prose = substr(prose, 1, RSTART - 1) "<b>" bold "</b>" substr(prose, RSTART + RLENGTH)
  }
  # Code in single backticks would end at an apostrophe.
  gsub(/`[^`]+`/, "`&`", prose)
  # The code `::read` would be a reference; doxygen_html.sed takes the word joiner out again.
  gsub(/`::/, "`:\342\201\240:", prose)
  while (match(prose, /\[[^][]*\]\([^() \n]+\)/)) {
    split(substr(prose, RSTART + 1, RLENGTH - 2), parts, /\]\(/)
    printf "%s%s", substr(prose, 1, RSTART - 1), link(parts[1], parts[2])
    prose = substr(prose, RSTART + RLENGTH)
  }
  printf "%s", prose
  prose = ""
}

/^ *```/ {
  print_prose()
  code = !code
  print
  next
}
code { print; next }
# The main page has its name from doxygen.
/^# / && page_name(FILENAME) != "index" { $0 = $0 " {#" page_name(FILENAME) "}" }
/^##+ / { $0 = $0 " {#" page_name(FILENAME) "-" anchor(substr($0, index($0, " ") + 1)) "}" }
{ prose = prose $0 "\n" }
END { print_prose() }
