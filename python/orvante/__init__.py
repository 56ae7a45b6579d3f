"""Thermal label printers from Python: the second door of the orvante library.

    import orvante
    label = (orvante.Label(dpi=203).size(50, 30).gap(2).clear()
             .text(20, 20, "3", "Hello")
             .print())
    with orvante.Printer.open("tcp://192.168.1.50", timeout=5.0) as printer:
        printer.print(label)

A label per record from a template, none lost and none skipped:

    result = orvante.run_batch("label.json", "orders.csv", "tcp://192.168.1.50",
                               journal="orders.csv.journal")

A printer's failure is orvante.Error (a RuntimeError) with the reason; a bad
argument is ValueError (TemplateError and RecordError name where). Calls
that wait on a printer or render release the GIL.
"""

import os
from collections.abc import Mapping

from ._orvante import (
    Batch,
    BatchProgress,
    BatchResult,
    Delivery,
    Error,
    Image,
    Label,
    PdfDocument,
    Printer,
    PrinterStatus,
    Record,
    RecordError,
    SkippedRecord,
    Template,
    TemplateError,
    discover,
    preview,
    read_records,
)
from . import testing

__all__ = [
    "Batch",
    "BatchProgress",
    "BatchResult",
    "Delivery",
    "Error",
    "Image",
    "Label",
    "PdfDocument",
    "Printer",
    "PrinterStatus",
    "Record",
    "RecordError",
    "SkippedRecord",
    "Template",
    "TemplateError",
    "discover",
    "preview",
    "read_records",
    "run_batch",
    "testing",
]

Mapping.register(Record)


def run_batch(template, records, printer, *, from_=1, to=None, skip_bad=False, journal=None,
              resume=False, name=None, on_progress=None, wait=None, connect_timeout=5.0,
              confirm_timeout=30.0):
    """Batch(template, records, ...).print(printer, ...) in one call.

    template is a Template or the path of its file; records a list of
    Records or dicts, or the path of a CSV or JSON-lines file (the job's
    name unless name is given). Returns the BatchResult.
    """
    if not isinstance(template, Template):
        template = Template.from_file(template)
    if isinstance(records, (str, os.PathLike)):
        name = os.fspath(records) if name is None else name
        records = read_records(records)
    batch = Batch(template, records, from_=from_, to=to, skip_bad=skip_bad)
    return batch.print(printer, journal=journal, resume=resume, name=name or "",
                       on_progress=on_progress, wait=wait, connect_timeout=connect_timeout,
                       confirm_timeout=confirm_timeout)


# The classes and the error read as orvante's own in reprs and tracebacks.
for _name in __all__:
    _value = globals()[_name]
    if isinstance(_value, type):
        _value.__module__ = __name__
Delivery.Stopped.__module__ = Delivery.Wait.__module__ = __name__
Delivery.Wait.__qualname__ = "Delivery.Wait"
Delivery.Stopped.__qualname__ = "Delivery.Stopped"
del _name, _value
