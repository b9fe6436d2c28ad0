# Pretty-printers for gdb: Json, IniFile, Option, the records that wait in the logger's ring, and one record.
#
# gdb loads this file with the shared library where it is installed for it (CMakeLists.txt beside it says where). A
# host that links the static library, or runs from a build folder, loads it by hand: source oxutool-gdb.py
#
#     (gdb) print value
#     $1 = {"list": [1, "two"], "nothing": null}
#     (gdb) print oxu::CLog::m_pInstance._M_b._M_p->m_ring
#     $2 = [oxu::INFO "waits"]
#
# The second command needs a library with debug information and a frame in C++. Each container and each text is cut at
# gdb's limit (set print elements); "..." stands for the rest. An object that is uninitialised, freed or overwritten
# shows as "cannot be read", unless its bytes happen to form a value.
#
# Strings, vectors and maps are read by the layout that libstdc++'s ABI fixes, because clang leaves a part of their
# types out of the debug information. Those of another standard library cannot be read.

import functools
import itertools

import gdb
import gdb.printing
import gdb.types

WORD = 8  # Json.cpp builds for no other size of an address
STRING_SIZE = 4 * WORD
DEEPEST = 20
MOST_SHOWN = 10000  # elements and characters in one print, so that it ends soon whatever the memory holds
RING_MAGIC = 20231020


def require(sound):
    if not sound:
        raise ValueError


def at(address, kind):
    return gdb.Value(address).cast(kind.pointer()).dereference()


def word(container, offset):
    """The word at an offset in a container: an address, or a value. A value that a function returned has no address."""
    if isinstance(container, int):
        return int(at(container + offset, gdb.lookup_type("unsigned long")))
    if container.address is not None:
        return word(int(container.address), offset)
    if container.type.strip_typedefs().code != gdb.TYPE_CODE_STRUCT:
        return int(container)
    for field in container.type.strip_typedefs().fields():
        if hasattr(field, "bitpos") and 0 <= offset - field.bitpos // 8 <= field.type.sizeof - WORD:
            return word(container[field], offset - field.bitpos // 8)
    raise ValueError


class Printer:
    """Turns a value into text by one of the methods from json on. These raise an exception for what cannot be read."""

    def __init__(self, method, value):
        self.method = method
        self.value = value

    def to_string(self):
        self.room = MOST_SHOWN
        self.seen = set()
        try:
            return self.method(self, self.value)
        except Exception:
            return "cannot be read"

    def take(self, count):
        """How many of the elements or characters to show."""
        shown = min(count, self.room, gdb.parameter("print elements") or MOST_SHOWN)
        self.room -= shown
        return shown

    def meet(self, address):
        """Raises an exception at a second visit: nothing sound is held twice, or by itself."""
        require(address not in self.seen)
        self.seen.add(address)

    def sequence(self, count, texts):
        shown = self.take(count)
        parts = list(itertools.islice(texts, shown))
        require(len(parts) == shown)
        return ", ".join(parts + ["..."] * (shown < count))

    def characters(self, start, size):
        shown = self.take(size)
        text = at(start, gdb.lookup_type("char").array(shown - 1)).format_string(max_elements=0)
        return text + "..." * (shown < size)

    def string(self, string):
        """The NUL behind the text tells a string from most other things."""
        start, size = word(string, 0), word(string, WORD)
        require(int(at(start + size, gdb.lookup_type("char"))) == 0)
        return self.characters(start, size)

    def array(self, vector, size, element):
        """A vector whose elements have `size` bytes; `element` makes the text of the element at an address."""
        start, finish = word(vector, 0), word(vector, WORD)
        require(start <= finish and (finish - start) % size == 0 and start % WORD == 0)
        addresses = range(start, finish, size)
        return "[" + self.sequence(len(addresses), map(element, addresses)) + "]"

    def table(self, tree, mapped):
        """A map from strings; `mapped` makes the text of the value at an address."""
        root, count = word(tree, 2 * WORD), word(tree, 5 * WORD)
        keys = (node + 4 * WORD for node in self.nodes(root))
        entries = (self.string(key) + ": " + mapped(key + STRING_SIZE) for key in keys)
        return "{" + self.sequence(count, entries) + "}"

    def nodes(self, node):
        """The nodes of a tree in the order of their keys. A tree too deep for Python's stack raises an exception."""
        if node != 0:
            self.meet(node)
            yield from self.nodes(word(node, 2 * WORD))
            yield node
            yield from self.nodes(word(node, 3 * WORD))

    def json(self, value, depth=0):
        if value.address is not None:
            self.meet(int(value.address))
        own_type = gdb.types.get_basic_type(value.type)

        def held(address):
            return "..." if depth == DEEPEST else self.json(at(address, own_type), depth + 1)

        kind = str(value["m_type"]).rpartition("::")[2]
        if kind == "Null":
            return "null"
        member = value["m_" + kind.lower()]
        if kind == "String":
            return self.string(member)
        if kind == "Array":
            return self.array(member, own_type.sizeof, held)
        return self.table(member, held) if kind == "Object" else member.format_string()

    def ini_file(self, value):
        return self.table(value["m_sections"], lambda section: self.table(section, self.string))

    def option(self, value):
        property_type = value["m_options"].type.strip_typedefs().template_argument(1)

        def registered(address):
            found = at(address, property_type)
            return "%s %s" % (found["type"], self.string(found["value"]))

        return "%s, arguments %s" % (self.table(value["m_options"], registered),
                                     self.array(value["m_arguments"], STRING_SIZE, self.string))

    def ring(self, value):
        header, items = value["m_header"].dereference(), value["m_items"]
        capacity, read, committed = (int(header[name]) for name in ("capacity", "readIndex", "commitIndex"))
        require(int(header["magic"]) == RING_MAGIC and read <= committed < read + capacity)
        records = (self.record(items[slot % capacity]) for slot in range(read, committed))
        return "[" + self.sequence(committed - read, records) + "]"

    def record(self, value):
        """The bytes behind the text are never written, so it ends at the first NUL."""
        start, size = int(value["text"].address), value["text"].type.sizeof
        text = bytes(gdb.selected_inferior().read_memory(start, size))
        return "%s %s" % (value["level"], self.characters(start, text.index(b"\0")))


printers = gdb.printing.RegexpCollectionPrettyPrinter("libOxuTool")
for name, method in (("oxu::json::Json", Printer.json), ("IniFile", Printer.ini_file), ("Option", Printer.option),
                   ("CRingBuffer<oxu::LogItem>", Printer.ring), ("oxu::LogItem", Printer.record)):
    printers.add_printer(name, "^%s$" % name, functools.partial(Printer, method))
gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)
