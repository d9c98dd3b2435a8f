# SPDX-License-Identifier: Apache-2.0
"""Pretty printers for gdb. Load with `source tools/gdb/dravik_adt_printers.py`, or from ~/.gdbinit.

Values read as they print in C++: (1,2,3), 0:2:5, [0,4)x[1,3), float[2,5)x[0,4) strides (4,1) offset 0. The boxes of an
index set that has more than one, and the size of a shared buffer, need a library with debug symbols. Works on core
files too: nothing is called in the program.
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


def array_info(value):
    return "%s strides %s offset %s" % (box(value["range"], ")"), vector(value["strides"]), value["offset"])


def scale_offset(value):
    return "%g*x%+g" % (float(value["scale_"]), float(value["offset_"]))


def tree_boxes(nodes, number):
    """The boxes below one node, in the order in which C++ iterates them."""
    node = nodes[number]
    for slot in range(int(node["count"])):
        if int(node["nodes"]) >> slot & 1:
            yield from tree_boxes(nodes, int(node["child"][slot]))
        elif int(node["min"][0][slot]) < int(node["max"][0][slot]):  # else a part of a grid that was not touched
            axes = range(node["min"].type.range()[1] + 1)
            yield "x".join("[%s,%s)" % (node["min"][axis][slot], node["max"][axis][slot]) for axis in axes)


def index_set(value):
    bounds = value["bounds_"]
    pointer = value["tree_"]["tree_"]
    if int(pointer) == 0:
        sides = zip(components(bounds["min"]), components(bounds["max"]))
        return "{}" if any(low >= high for low, high in sides) else "{%s}" % box(bounds, ")")
    tree = pointer.dereference()
    if not tree.type.strip_typedefs().fields():
        return "{several boxes in %s}" % box(bounds, ")")
    return "{%s}" % " ".join(tree_boxes(tree["boxes_"]["pool_"]["nodes_"]["_M_impl"]["_M_start"], 0))


def shared_buffer(value):
    if int(value["owner_"]["px"]) == 0:
        return "no bytes"
    owner = value["owner_"]["px"].dereference()
    owner = owner.cast(owner.dynamic_type)
    kind = str(owner.type.strip_typedefs()).split("::")[-1]
    if kind == "ExternalPointerOwner":
        return "%s external bytes%s" % (owner["size_"], "" if owner["writable_"] else ", read-only")
    if kind == "BasicArrayOwner":
        allocated = int(owner["published_"]["_M_b"]["_M_p"]) != 0
        return "%s bytes%s" % (owner["size_"], "" if allocated else ", not allocated")
    return "bytes of somebody's" if kind == "Owner" else "bytes of a %s" % kind


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
            ("FixedVector<.*>", vector),
            ("ExtentImpl<.*>", extent),
            ("ExtentK<.*>", lambda value: " x ".join(extent(axis) for axis in components(value["axes_"]))),
            ("OpenEndedRange<.*>", lambda value: box(value, ")")),
            ("ClosedRange<.*>", lambda value: box(value, "]")),
            ("IndexSet<.*>", index_set),
            ("BasicArrayRef<.*>", array),
            ("SharedArray<.*>", lambda value: array(value.cast(value.type.fields()[0].type))),
            ("SharedBuffer", shared_buffer),
            ("ScaleOffset", scale_offset),
            ("BulkView::BufferHandle::ArrayInfo", array_info)):
        collection.add_printer(name, "^%s%s$" % (NAMESPACE, name), printer(text))
    gdb.printing.register_pretty_printer(gdb.current_objfile(), collection, replace=True)


register()
