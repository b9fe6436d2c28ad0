"""Shows the values of libOxuTool in gdb: Json, IniFile, Option, and the logger's ring with its records.

gdb loads this file by itself together with the library (see CMakeLists.txt beside it); otherwise: source FILE.
Texts and the sections of an IniFile are shown by the printers that come with the standard library. A printer meets
values that are not initialised or overwritten: it shows what it can read, and ends.
"""

import itertools

import gdb
import gdb.printing

# More than anyone reads; what stands in an overwritten container can be endless.
MOST_CHILDREN = 100000
RING_MAGIC = 20231020


def name_of(enumerator):
    """An enumerator without its scope; the number, where there is none of that value."""
    return str(enumerator).rsplit("::", 1)[-1]


def guarded(children):
    """The children as far as they can be read."""
    try:
        for name, child in itertools.islice(children, MOST_CHILDREN):
            child.fetch_lazy()
            yield name, child
    except Exception:  # whatever it is, a printer that raises shows less
        return


def next_node(node):
    """The successor in a map's tree; a tree that is deeper than memory allows is none."""
    steps = range(128)
    if int(node["_M_right"]) != 0:
        node = node["_M_right"]
        for _ in steps:
            if int(node["_M_left"]) == 0:
                return node
            node = node["_M_left"]
    else:
        parent = node["_M_parent"]
        for _ in steps:
            if int(node) != int(parent["_M_right"]):
                return parent
            node, parent = parent, parent["_M_parent"]
    raise ValueError("no tree")


def map_children(container):
    """Keys and values by turns. Walks the nodes by itself: their type is known only where the map is filled, and the
    library may have no debugging information."""
    tree = container["_M_t"]["_M_impl"]
    header = tree["_M_header"]
    key_type, value_type = (container.type.strip_typedefs().template_argument(i) for i in (0, 1))
    node = header["_M_left"]
    for index in range(int(tree["_M_node_count"])):
        if index != 0:
            node = next_node(node)
        at = int(node) + header.type.sizeof
        yield "[%d]" % (2 * index), gdb.Value(at).cast(key_type.pointer()).dereference()
        at = -(-(at + key_type.sizeof) // value_type.alignof) * value_type.alignof
        yield "[%d]" % (2 * index + 1), gdb.Value(at).cast(value_type.pointer()).dereference()


def array_children(container):
    vector = container["_M_impl"]
    for index in range(int(vector["_M_finish"] - vector["_M_start"])):
        yield "[%d]" % index, vector["_M_start"][index]


class Scalar:
    """A value that is shown as text, or as another value."""

    def __init__(self, show):
        self._show = show

    def to_string(self):
        try:
            return self._show()
        except Exception as error:  # whatever it is, a printer that raises shows less
            return "<cannot be read: %s>" % error


class Container(Scalar):
    """A value with children, in a standard container."""

    def __init__(self, title, children, hint):
        super().__init__(lambda: title)
        self._children = children
        self._hint = hint

    def children(self):
        return guarded(self._children)

    def display_hint(self):
        return self._hint


def json_printer(value):
    kind = name_of(value["m_type"])
    scalars = {"Bool": "m_bool", "Int": "m_int", "Double": "m_double", "String": "m_string"}
    if kind == "Array":
        return Container("Array", array_children(value["m_array"]), "array")
    if kind == "Object":
        return Container("Object", map_children(value["m_object"]), "map")
    if kind in scalars:
        return Scalar(lambda: value[scalars[kind]])
    return Scalar(lambda: "Null" if kind == "Null" else "<no Json: kind %s>" % kind)


def ini_file_printer(value):
    return Container("IniFile", map_children(value["m_sections"]), "map")


def option_printer(value):
    return Container("Option", map_children(value["m_options"]), "map")


def option_property_printer(value):
    return Scalar(lambda: "%s %s" % (name_of(value["type"]), value["value"].format_string()))


def log_item_printer(value):
    def show():
        text = value["text"].address.cast(gdb.lookup_type("char").pointer())
        return "%s %s" % (name_of(value["level"]), text.format_string(address=False))

    return Scalar(show)


class Ring(Scalar):
    """The records that wait, oldest first."""

    def __init__(self, value):
        super().__init__(self._title)
        self._value = value

    def _indices(self):
        """Slots, first and last index of what waits; None for a ring that cannot be one."""
        header = self._value["m_header"]
        if int(header) == 0:
            return None
        capacity, first, last = (int(header[name]) for name in ("capacity", "readIndex", "commitIndex"))
        is_sound = int(header["magic"]) == RING_MAGIC and capacity > 1 and capacity & (capacity - 1) == 0
        return (capacity, first, last) if is_sound and 0 <= last - first < capacity else None

    def _title(self):
        if int(self._value["m_header"]) == 0:
            return "ring without storage"
        indices = self._indices()
        if indices is None:
            return "<no ring: its header is overwritten>"
        capacity, first, last = indices
        return "ring of %d slots, %d waiting" % (capacity, last - first)

    def _records(self):
        indices = self._indices()
        if indices is None:
            return
        capacity, first, last = indices
        for index in range(first, last):
            yield "[%d]" % index, self._value["m_items"][index % capacity]

    def children(self):
        return guarded(self._records())


def build():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("oxutool")
    for name, pattern, make in (
        ("Json", r"^oxu::json::Json$", json_printer),
        ("IniFile", r"^IniFile$", ini_file_printer),
        ("Option", r"^Option$", option_printer),
        ("OptionProperty", r"^Option::OptionProperty$", option_property_printer),
        ("LogItem", r"^oxu::LogItem$", log_item_printer),
        ("CRingBuffer", r"^CRingBuffer<.*>$", Ring),
    ):
        printers.add_printer(name, pattern, make)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), build(), replace=True)
