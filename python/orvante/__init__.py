"""Thermal label printers from Python: the second door of the orvante library.

    import orvante
    label = (orvante.Label(dpi=203).size(50, 30).gap(2).clear()
             .text(20, 20, "3", "Hello")
             .print())
    with orvante.Printer.open("tcp://192.168.1.50", timeout=5.0) as printer:
        printer.print(label)

A printer's failure is orvante.Error (a RuntimeError) with the reason; a bad
argument is ValueError. Calls that wait on a printer or render release the
GIL.
"""

from ._orvante import (
    Delivery,
    Error,
    Image,
    Label,
    PdfDocument,
    Printer,
    PrinterStatus,
    discover,
    preview,
)
from . import testing

__all__ = [
    "Delivery",
    "Error",
    "Image",
    "Label",
    "PdfDocument",
    "Printer",
    "PrinterStatus",
    "discover",
    "preview",
    "testing",
]

# The classes and the error read as orvante's own in reprs and tracebacks.
for _name in __all__:
    _value = globals()[_name]
    if isinstance(_value, type):
        _value.__module__ = __name__
Delivery.Stopped.__module__ = Delivery.Wait.__module__ = __name__
Delivery.Wait.__qualname__ = "Delivery.Wait"
Delivery.Stopped.__qualname__ = "Delivery.Stopped"
del _name, _value
