# Pretty-printers for gdb: Json, IniFile, Option, the logger's ring and its records.
#
# gdb loads this file with the shared library where it is installed for it (CMakeLists.txt beside it says where). A
# host that links the static library, or runs from a build folder, loads it by hand: source oxutool-gdb.py
#
#     (gdb) print value
#     $1 = array of 2 = {1, "two"}
#     (gdb) print oxu::CLog::m_pInstance._M_b._M_p->m_ring
#     $2 = ring of 1, capacity 128 = {{level = oxu::INFO, text = "waits"}}
#
# The second, the records that wait for the console, needs a library with debug information and a frame in C++.
#
# What is printed may be uninitialised, freed or overwritten. So nothing here raises, and each loop ends: at a count,
# at memory that cannot be read, or at a node seen before. gdb itself takes no more children than its limits allow.
#
# Strings, vectors and maps of libstdc++ are read by their layout, which its ABI fixes: clang leaves a part of their
# types out of the debug information, where the library's own printers fail. Those of another layout are left alone.

import re

import gdb
import gdb.printing
import gdb.types

WORD = 8  # Json.cpp builds for no other size of an address
STRING_SIZE = 4 * WORD
DEEPEST_TREE = 2 * 64
LONGEST_TEXT = 1 << 31
RING_MAGIC = 20231020


class Corrupt(Exception):
    """What cannot be a value of the type, in words for the user."""


def at(address, kind):
    """The value, read now: where gdb reads it later and cannot, its whole command fails."""
    value = gdb.Value(address).cast(kind.pointer()).dereference()
    value.fetch_lazy()
    return value


def memory(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size))


def word(base, offset, path=""):
    """The word in a container, which is an address or a value. One that a function returned has no address, and
    is read by the names of its members."""
    if not isinstance(base, int):
        if base.address is None:
            for name in path.split("."):
                base = base[name]
            return int(base)
        base = int(base.address)
    return int(at(base + offset, gdb.lookup_type("unsigned long")))


def lazy_text(start, size):
    return gdb.Value(start).cast(gdb.lookup_type("char").pointer()).lazy_string(length=size)


def text(string):
    """A std::string, which gdb cuts at its limit. The NUL behind the text tells a string from most other things."""
    try:
        start = word(string, 0, "_M_dataplus._M_p")
        size = word(string, WORD, "_M_string_length")
        if size < LONGEST_TEXT and memory(start + size, 1) == b"\0":
            return lazy_text(start, size)
    except Exception:
        pass
    return "<no string>"


def map_size(tree):
    return word(tree, 5 * WORD, "_M_t._M_impl._M_node_count")


def map_nodes(tree):
    """The nodes of a std::map in the order of their keys, without trust in its shape."""
    node = word(tree, 2 * WORD, "_M_t._M_impl._M_header._M_parent")
    seen, path = set(), []
    for found in range(map_size(tree)):
        while node:
            if node in seen or len(path) > DEEPEST_TREE:
                raise Corrupt("no tree")
            seen.add(node)
            path.append(node)
            node = word(node, 2 * WORD)
        if not path:
            raise Corrupt("no more than %d" % found)
        here = path.pop()
        yield here
        node = word(here, 3 * WORD)


def map_entries(tree):
    """The key and the address of the value, for maps whose key is a std::string."""
    for node in map_nodes(tree):
        key = node + 4 * WORD
        yield text(key), key + STRING_SIZE


def map_children(tree, kind):
    for number, (key, value) in enumerate(map_entries(tree)):
        yield "[%d]" % (2 * number), key
        yield "[%d]" % (2 * number + 1), at(value, kind)


class Printer:
    """Turns whatever goes wrong in summary or items into text. The items of a map come in pairs, and so the text is
    the value of the key before it, or has a key of its own."""

    hint = None

    def __init__(self, value):
        self.value = value
        if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
            self.value = value.referenced_value()

    def display_hint(self):
        return self.hint

    def to_string(self):
        try:
            return self.summary()
        except Exception as error:
            return "<%s>" % error

    def children(self):
        count = 0
        try:
            for count, item in enumerate(self.items(), 1):
                yield item
        except Exception as error:
            if self.display_hint() == "map" and count % 2 == 0:
                yield "[error]", "error"
            yield "[what]", "<%s>" % error

    def summary(self):
        return None

    def items(self):
        return iter(())


class JsonPrinter(Printer):
    """A value never holds itself. A damaged one may, and twice on each level, which no limit of gdb's ends in time."""

    HINTS = {5: "array", 6: "map"}
    holders = {}  # by the addresses of what was printed: what holds it, in the same command

    def kind(self):
        return int(self.value["m_type"])

    def display_hint(self):
        try:
            return self.HINTS.get(self.kind())
        except Exception:
            return None

    def summary(self):
        kind = self.kind()
        if not 0 <= kind <= 6:
            raise Corrupt("no Json, its type is %d" % kind)
        summaries = (lambda: "null", lambda: self.value["m_bool"], lambda: self.value["m_int"],
                     lambda: self.value["m_double"], lambda: text(self.value["m_string"]),
                     lambda: "array of %d" % len(self.elements()),
                     lambda: "object of %d" % map_size(self.value["m_object"]))
        return summaries[kind]()

    def elements(self):
        """The addresses of the elements."""
        array = self.value["m_array"]
        start, finish, limit = (
            word(array, index * WORD, "_M_impl." + name)
            for index, name in enumerate(("_M_start", "_M_finish", "_M_end_of_storage")))
        size = self.value.type.sizeof
        if not start <= finish <= limit or (finish - start) % size or start % WORD:
            raise Corrupt("no array")
        return range(start, finish, size)

    def items(self):
        children = {5: self.array_items, 6: self.object_items}.get(self.kind())
        for name, child in children() if children else ():
            if isinstance(child, gdb.Value):
                self.hold(int(child.address))
            yield name, child

    def hold(self, child):
        """Notes who holds the child, unless the child is one of those above: so the way up has an end."""
        holder = above = 0 if self.value.address is None else int(self.value.address)
        while above:
            if above == child:
                raise Corrupt("it holds itself")
            above = self.holders.get(above, 0)
        self.holders[child] = holder

    def object_items(self):
        return map_children(self.value["m_object"], self.value.type.unqualified())

    def array_items(self):
        kind = self.value.type.unqualified()
        for number, address in enumerate(self.elements()):
            yield "[%d]" % number, at(address, kind)


class SectionPrinter(Printer):
    """The keys of a section. Its value is an array of as many bytes as the map has, so that no printer of maps takes
    it; what makes it a section is that an IniFile said so since the program ran last."""

    hint = "map"
    addresses = set()

    def items(self):
        for number, (key, value) in enumerate(map_entries(int(self.value.address))):
            yield "[%d]" % (2 * number), key
            yield "[%d]" % (2 * number + 1), text(value)

    def summary(self):
        return "no keys" if map_size(int(self.value.address)) == 0 else None

    @classmethod
    def recognises(cls, value):
        return value.type.code == gdb.TYPE_CODE_ARRAY and value.address is not None and \
            int(value.address) in cls.addresses


class IniFilePrinter(Printer):
    hint = "map"

    def summary(self):
        return "IniFile of %d" % map_size(self.value["m_sections"])

    def items(self):
        kind = gdb.lookup_type("unsigned char").array(6 * WORD - 1)
        for name, section in map_children(self.value["m_sections"], kind):
            if isinstance(section, gdb.Value):
                SectionPrinter.addresses.add(int(section.address))
            yield name, section


class OptionPrinter(Printer):
    hint = "map"

    def summary(self):
        return "Option of %d" % map_size(self.value["m_options"])

    def items(self):
        options = self.value["m_options"]
        return map_children(options, options.type.strip_typedefs().template_argument(1))


class OptionPropertyPrinter(Printer):
    def items(self):
        yield "type", self.value["type"]
        yield "value", text(self.value["value"])


class RingPrinter(Printer):
    hint = "array"

    def waiting(self):
        """The slots whose records wait, after a check of the header."""
        header = self.value["m_header"].dereference()
        capacity, reserved, read, committed = (
            int(header[name]) for name in ("capacity", "reserveIndex", "readIndex", "commitIndex"))
        if int(header["magic"]) != RING_MAGIC or capacity & (capacity - 1) or not (
                read <= committed <= reserved < read + capacity):
            raise Corrupt("no ring")
        return range(read, committed), reserved - committed, capacity

    def summary(self):
        if int(self.value["m_header"]) == 0:
            return "ring without storage"
        slots, unfinished, capacity = self.waiting()
        being_written = ", %d being written" % unfinished if unfinished else ""
        return "ring of %d, capacity %d%s" % (len(slots), capacity, being_written)

    def items(self):
        if int(self.value["m_header"]) == 0:
            return
        slots, _, capacity = self.waiting()
        start, kind = int(self.value["m_items"]), self.value.type.template_argument(0)
        for slot in slots:
            yield "[%d]" % (slot - slots.start), at(start + (slot & (capacity - 1)) * kind.sizeof, kind)


class LogItemPrinter(Printer):
    """The bytes behind the text are never written, so it ends at the first NUL."""

    def items(self):
        yield "level", self.value["level"]
        message = self.value["text"]
        if message.address is None:
            yield "text", message
            return
        start, size = int(message.address), message.type.sizeof
        end = memory(start, size).find(b"\0")
        yield "text", lazy_text(start, size if end < 0 else end)


class Printers(gdb.printing.RegexpCollectionPrettyPrinter):
    """Finds the printer by the type's name. Values whose containers are not those of libstdc++ have none."""

    CONTAINERS = {"oxu::json::Json": "m_string", "IniFile": "m_sections", "Option": "m_options",
                  "Option::OptionProperty": "value"}

    def __call__(self, value):
        try:
            if SectionPrinter.recognises(value):
                return SectionPrinter(value)
            kind = gdb.types.get_basic_type(value.type)
            container = self.CONTAINERS.get(kind.tag)
            if container and "__cxx11::" not in str(kind[container].type.strip_typedefs()):
                return None
            return super().__call__(value)
        except Exception:
            return None


def forget():
    """What is at an address when the program runs on may be anything else."""
    SectionPrinter.addresses.clear()
    JsonPrinter.holders.clear()


def register():
    printers = Printers("libOxuTool")
    for name, printer in (("oxu::json::Json", JsonPrinter), ("IniFile", IniFilePrinter), ("Option", OptionPrinter),
                          ("Option::OptionProperty", OptionPropertyPrinter), ("CRingBuffer<.*>", RingPrinter),
                          ("oxu::LogItem", LogItemPrinter)):
        printers.add_printer(re.sub(r"\W+", "_", name), "^%s$" % name, printer)
    gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)
    gdb.events.cont.connect(lambda _: forget())
    gdb.events.before_prompt.connect(JsonPrinter.holders.clear)


register()
