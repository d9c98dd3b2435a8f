# SPDX-License-Identifier: Apache-2.0
"""Pretty printers for gdb. Load with `source tools/gdb/dravik_adt_printers.py`, or from ~/.gdbinit.

Values read as they print in C++: (1,2,3), 0:2:5, [0,4)x[1,3), float[2,5)x[0,4) strides (4,1) offset 0. The boxes of an
index set of four axes, and the size of a shared buffer, need a library with debug symbols. Works on core
files too: nothing is called in the program.

Of types that the library compiles a user's build tells only the names; what they consist of is in dravik_adt/types.gz
beside the library, and loaded with it.
"""

import atexit
import gzip
import os
import re
import tempfile

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


def short_name(kind):
    """The type's name without our namespaces and without the traits that every view has."""
    name = str(kind.strip_typedefs().unqualified()).replace(", %sBulkView::BoundsCheckViewTraits" % NAMESPACE, "")
    return name.replace(NAMESPACE, "").split("<")[0].split("::")[-1] + ("<" + name.split("<", 1)[1] if "<" in name else "")


def handle(value):
    if int(value["notices_"]) & 1:
        return "invalidated"
    if int(value["buffer_"]) == 0 and int(value["access_"]) == 0:
        return "empty"
    memory = ", no memory" if int(value["buffer_"]) == 0 else ""
    return "%s of %s%s" % (str(value["access_"]).split("::")[-1], array_info(value["info_"]), memory)


def class_of(pointer):
    """The name of the class of an object, by its table of functions: of the class itself gdb may know nothing."""
    table = int(pointer.cast(gdb.lookup_type("unsigned long").pointer()).dereference())
    found = re.search(r"vtable for (.*) \+ \d+", gdb.execute("info symbol %d" % table, to_string=True))
    return found.group(1).replace(NAMESPACE, "").split("::")[-1] if found else "an accessor"


def view(value):
    pointer = gdb.lookup_type(NAMESPACE + "BulkView::IBufferAccessor").pointer()
    accessor = value["accessor_"].address.cast(pointer.pointer()).dereference()  # all that a unique owner is
    if int(accessor) == 0:
        return "%s without an accessor" % short_name(value.type)
    return "%s %s over %s, block %s" % (short_name(value.type), vector(value["size_"]), class_of(accessor),
                                        handle(value["block_"]["handle_"]))


def histogram(value):
    tally, pending = value["tally_"], int(value["pendingCount_"])
    bins = tally["bins"]["_M_impl"]
    count = int(bins["_M_finish"] - bins["_M_start"])
    low, density = float(tally["origin"]), float(tally["density"])
    return "%s bins over [%g,%g): %s samples, %s below, %s above%s" % (
        count, low, low + count / density, tally["inside"]["count"], tally["underflows"], tally["overflows"],
        ", %s not yet counted" % pending if pending else "")


def members(value):
    """The values of the members of a class and its bases by their names."""
    for field in value.type.strip_typedefs().fields():
        if field.is_base_class:
            yield from members(value.cast(field.type))
        elif hasattr(field, "bitpos") and not field.artificial and not field.name.startswith("_vptr"):
            yield field.name.rstrip("_"), value[field]


def definition(value):
    """The class of a definition and its members, definitions inside it included."""
    def text(member):
        if str(member.type.strip_typedefs()).startswith("boost::shared_ptr<"):
            return "none" if int(member["px"]) == 0 else definition(member["px"].dereference())
        return str(member)
    value = value.cast(value.dynamic_type)
    return "%s(%s)" % (short_name(value.type), ", ".join("%s=%s" % (name, text(it)) for name, it in members(value)))


def load_types():
    """Tells gdb of the types that the library compiles, once per session."""
    library = gdb.current_objfile()
    packed = library and os.path.join(os.path.dirname(library.filename), "dravik_adt", "types.gz")
    if not packed or not os.path.exists(packed) or getattr(gdb, "dravik_adt_types", None):
        return
    with gzip.open(packed) as types, tempfile.NamedTemporaryFile(suffix=".o", delete=False) as unpacked:
        unpacked.write(types.read())
    gdb.dravik_adt_types = unpacked.name
    atexit.register(os.unlink, unpacked.name)
    gdb.execute("add-symbol-file -readnow %s" % unpacked.name, to_string=True)


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
            ("BulkView::BufferHandle::ArrayInfo", array_info),
            ("BulkView::BufferHandle", handle),
            ("BulkView::Typed[1-4]dR[ow]View<.*>", view),
            ("Histogram", histogram),
            ("BulkDef::(Entity|Source|Transform|View)::.*Def(<.*>)?", definition)):
        collection.add_printer(name, "^%s%s$" % (NAMESPACE, name), printer(text))
    gdb.printing.register_pretty_printer(gdb.current_objfile(), collection, replace=True)


register()
load_types()
