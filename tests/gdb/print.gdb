# What gdb prints of the host's values; "#=" is what the next line of output must be, as a regular expression.
set width 0
break look
run
up
echo ready\n
print json
#= object of 4 = \{\["bool"\] = true, \["double"\] = 1\.5, \["list"\] = array of 3 = \{null, null, "a \\"text\\" beyond the string's own room"\}, \["object"\] = object of 1 = \{\["null"\] = null\}\}
print ini
#= IniFile of 2 = \{\["empty"\] = no keys, \["web"\] = \{\["port"\] = "80"\}\}
print option
#= Option of 1 = \{\["port"\] = \{type = Option::RequiredValue, value = "80"\}\}
print ring
#= ring of 3, capacity 4 = \{\{level = oxu::INFO, text = "text"\}, \{level = oxu::ERROR, text = "text"\}, \{level = .*\}\}

# References, and values that are not in memory.
python copy = lambda v: gdb.Value(gdb.selected_inferior().read_memory(int(v.address), v.type.sizeof), v.type)
print (oxu::json::Json&) json
#= object of 4 = .*
python print(copy(gdb.parse_and_eval("json")).format_string())
#= object of 4 = .* = array of 3 = .*null\}\}

# The limits are gdb's.
print -elements 3 -- list
#= array of 300 = \{0, 1, 2\.\.\.\}
print -elements unlimited -- list
#= array of 300 = \{0, 1, .*, 298, 299\}
print -max-depth 1 -- json
#= object of 4 = \{\["bool"\] = true, .* = \{\.\.\.\}.*\}

# Damage: an object and an array in themselves, a kind that does not exist, an array that ends before it starts, a
# tree with a loop, an impossible index.
set variable $node = *(char**) ((char*) &json.m_object + 16)
set variable *(oxu::json::Json*) ($node + 64) = json
print json
#= object of 4 = \{\["bool"\] = true, \["double"\] = object of 4 = \{\["bool"\] = true, \["double"\] = <it holds itself>\}, .*\}
set variable json.m_type = 77
print json
#= <no Json, its type is 77>
set variable $first = list.m_array._M_impl._M_start
set variable $first->m_type = list.m_type
set variable $first->m_array = list.m_array
set variable $first[1] = $first[0]
print -elements 3 -- list
#= array of 300 = \{array of 300 = \{<it holds itself>\}, array of 300 = \{array of 300 = \{<it holds itself>\}, <it holds itself>\}, 2\.\.\.\}
set variable list.m_array._M_impl._M_finish = 8
print list
#= <no array> = \{<no array>\}
set variable $root = *(unsigned long**) ((char*) &ini + 16)
set variable $root[2] = (unsigned long) $root
print ini
#= IniFile of 2 = \{\[error\] = <no tree>\}
set variable ring.m_header->commitIndex = 1000
print ring
#= <no ring> = \{<no ring>\}

# Whatever the bytes are, there is one line for each, and no word of Python.
python
write = gdb.selected_inferior().write_memory
for byte in b"\x00\x05\xa5\xff":
    for name in ("json", "list", "ini", "option", "ring"):
        value = gdb.parse_and_eval(name)
        write(int(value.address), bytes([byte]) * value.type.sizeof)
        gdb.execute("print " + name)
    for kind in range(7):
        write(int(gdb.parse_and_eval("&json")), bytes([kind, 0, 0, 0]))
        gdb.execute("print json")
end
