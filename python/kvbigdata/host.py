"""The embedded host, from Python: calls by name, objects, functions and classes.

    from kvbigdata import host

    with host.Session() as s:
        a = s.call("createFromConstantBuiltin", 42.0)
        a.get("ValueFuture").get("Value")          # 42.0

Values are converted as follows:

    None                              null array
    bool, float, int                  logical and double scalars (an int must fit exactly)
    NumPy scalars and arrays          the same class; read-only memory is borrowed; results are
                                      read-only views of at least two dimensions
    str, Chars                        char row, char matrix
    String, StringArray               string scalar, string array
    list or tuple, Cell               1-by-n cell, cell; returned as Cell
    dict, StructArray                 structure, structure array
    a callable                        function handle; called as fn(nargout, *args)
    Function                          handle of a named function
    Object, ObjectArray               object, object array

Anything else raises TypeError. The host's errors are raised as Error.
"""

from . import _host as _host
from ._host import Function, Object, Session, ledger
from ._records import Error, Frame, Property, Warning
from ._values import Cell, Chars, ObjectArray, String, StringArray, StructArray

__all__ = [
    "Cell",
    "Chars",
    "Error",
    "Frame",
    "Function",
    "Object",
    "ObjectArray",
    "Property",
    "Session",
    "String",
    "StringArray",
    "StructArray",
    "Warning",
    "ledger",
]

# They are public here, whatever file defines them.
for _class in (globals()[name] for name in __all__):
    if isinstance(_class, type):
        _class.__module__ = __name__
