# What gdb prints of the host's values; "#= " stands before each line that it must print.
set width 0
break look
run
up
echo ready\n
print json
#= {"bool": true, "double": 1.5, "list": [null, null, "a \"text\" beyond the string's own room"], "object": {"null": null}}
print (IniFile&) ini
#= {"empty": {}, "web": {"port": "80"}}
print option
#= {"port": Option::RequiredValue "80"}, arguments ["file"]
print ring
#= [oxu::INFO "text", oxu::ERROR "text", oxu::ERROR "text"]

# A value that is not in memory, as a function returns it.
python memory = gdb.selected_inferior().read_memory(int(gdb.parse_and_eval("&option")), gdb.lookup_type("Option").sizeof)
python print(gdb.Value(memory, gdb.lookup_type("Option")).format_string())
#= {"port": Option::RequiredValue "80"}, arguments ["file"]

# What is long or deep is cut.
print deep
#= [[[[[[[[[[[[[[[[[[[[[...]]]]]]]]]]]]]]]]]]]]]
set print elements unlimited
python print(len(gdb.parse_and_eval("list").format_string()) < 100000)
#= True
set print elements 3
print list
#= [[0, 1, 2, ...], [200, 201, 202, ...], [400, 401, 402, ...], ...]

# An object and an array in themselves, a tree with a loop, one without its nodes, an impossible
# index; then all bytes overwritten.
set variable *inObject = json
set variable *inArray = list
set variable $root = *(unsigned long**) ((char*) &ini + 16)
set variable $root[2] = (unsigned long) $root
set variable *(unsigned long*) ((char*) &option + 40) = 7
set variable ring.m_header->commitIndex = 1000
python
for name in "json", "list", "ini", "option", "ring": gdb.execute("print " + name)
for name in "json", "ini", "option", "ring", "item":
    value = gdb.parse_and_eval(name)
    gdb.selected_inferior().write_memory(int(value.address), b"\xa5" * value.type.sizeof)
    gdb.execute("print " + name)
for kind in "String", "Array", "Object":
    gdb.execute("set variable json.m_type = oxu::json::Json::" + kind)
    gdb.execute("print json")
end
echo done\n
#= cannot be read
#= done
