"""Printers simulated in this process, for testing printing code without a printer."""

from ._orvante import testing as _testing

SimulatedPrinter = _testing.SimulatedPrinter
SimulatedPrinter.__module__ = __name__

__all__ = ["SimulatedPrinter"]
