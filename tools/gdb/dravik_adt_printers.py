"""Pretty printers for gdb. Load with `source tools/gdb/dravik_adt_printers.py`, or from ~/.gdbinit.

Values read as they print in C++: (1,2,3), 0:2:5, [0,4)x[1,3), float[2,5)x[0,4) strides (4,1) offset 0.
"""

import gdb
import gdb.printing

NAMESPACE = "Quorvel::Dravik::Adt::"


def components(vector):
    """The components of a FixedVector as a list of values."""
    array = vector["components_"]
    return [array[i] for i in range(array.type.range()[1] + 1)]


def corners(value):
    """The components of a corner, which is a plain number in one-dimensional closed ranges."""
    return components(value) if value.type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT else [value]


def box(value, close):
    sides = zip(corners(value["min"]), corners(value["max"]))
    return "x".join("[%s,%s%s" % (low, high, close) for low, high in sides)


def extent(value):
    return "%s:%s:%s" % (value["origin"], value["step"], value["count"])


def vector(value):
    return "(%s)" % ",".join(str(component) for component in components(value))


def array(value):
    # The runtime's type information is a table pointer and then the raw name; its own debug symbols may be missing.
    words = value["valueType_"].cast(gdb.lookup_type("char").const().pointer().pointer())
    name = words[1].string().lstrip("*")
    plain = {"f": "float", "d": "double", "i": "int", "c": "char", "h": "unsigned char", "s": "short",
             "t": "unsigned short", "v": "void"}
    memory = ", no memory" if int(value["data_"]) == 0 else ""
    return "%s%s strides %s offset %s%s" % (plain.get(name, name), box(value["range_"], ")"), vector(value["strides_"]),
                                            value["bufferOffset_"], memory)


def printer(text):
    """A printer class that shows what `text` makes of the value."""
    class Printer:
        def __init__(self, value):
            self.value = value

        def to_string(self):
            return text(self.value)
    return Printer


def register():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("dravik_adt")
    for name, text in (
            ("FixedVector", vector),
            ("ExtentImpl", extent),
            ("ExtentK", lambda value: " x ".join(extent(axis) for axis in components(value["axes_"]))),
            ("OpenEndedRange", lambda value: box(value, ")")),
            ("ClosedRange", lambda value: box(value, "]")),
            ("BasicArrayRef", array),
            ("SharedArray", lambda value: array(value.cast(value.type.fields()[0].type)))):
        collection.add_printer(name, "^%s%s<.*>$" % (NAMESPACE, name), printer(text))
    gdb.printing.register_pretty_printer(gdb.current_objfile(), collection, replace=True)


register()
