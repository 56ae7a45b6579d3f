"""Printer and Delivery: printing and queries over TCP to the virtual
printer, progress, and failures as orvante.Error with the reason."""

import socket
import threading

import pytest

import orvante


def shipping_label():
    return (orvante.Label().size(50, 30).gap(2).clear()
            .text(20, 20, "3", "Hello").barcode(20, 80, "128", "ABC-123", height=60).print())


def test_print_and_queries_over_tcp(vprinter):
    label = shipping_label()
    with orvante.Printer.open(vprinter.uri, timeout=5.0) as printer:
        assert printer.is_open
        printer.print(label)
        assert printer.name() == "ORVANTE VP-1"
        assert printer.code_page() == "437"
        assert printer.free_memory() > 0
        assert printer.files() == []
        assert isinstance(printer.mileage(), float)
        status = printer.status()
        assert status.ready and status.words == "ready" and status == orvante.PrinterStatus(0)
        vprinter.set_status(0x05)
        assert str(printer.status()) == "head open, out of paper"
        assert printer.status().out_of_paper and not printer.status().paper_jam
        assert printer.query("~!T", "\r") == b"ORVANTE VP-1"
    assert not printer.is_open
    # The printer printed what the preview shows, dot for dot.
    assert vprinter.labels(1) == orvante.preview(label)


def test_progress_reports_each_send(simulated):
    label = orvante.Label().download("BIG.BIN", bytes(300_000)).print()
    with orvante.Printer.open(simulated.uri) as printer:
        reports = []
        printer.on_progress(lambda sent, total: reports.append((sent, total)))
        printer.print(label)
        total = len(bytes(label))
        assert reports[-1] == (total, total)
        assert [sent for sent, _ in reports] == sorted(sent for sent, _ in reports)

        # A callback's exception ends the send with that exception.
        def fail(sent, total):
            raise KeyError("stop here")
        printer.on_progress(fail)
        with pytest.raises(KeyError, match="stop here"):
            printer.send(b"SET TEAR ON\r\n")
        printer.on_progress(None)
        printer.send("CLS\r\n")


def test_failures_are_errors_with_the_reason():
    with pytest.raises(orvante.Error, match="Connection refused") as refused:
        orvante.Printer.open("tcp://127.0.0.1:1", timeout=2.0)
    assert isinstance(refused.value, RuntimeError)
    with pytest.raises(orvante.Error, match="port"):
        orvante.Printer.open("tcp://127.0.0.1:99999")
    with pytest.raises(ValueError, match="timeout"):
        orvante.Printer.open("tcp://127.0.0.1:9100", timeout=-1)

    # A printer that takes the query and never answers.
    with socket.create_server(("127.0.0.1", 0)) as silent:
        with orvante.Printer.open(f"tcp://127.0.0.1:{silent.getsockname()[1]}") as printer:
            with pytest.raises(orvante.Error, match="did not answer"):
                printer.status(timeout=0.3)
            printer.close()
            with pytest.raises(orvante.Error, match="closed"):
                printer.send(b"CLS\r\n")


def test_delivery_waits_out_a_fault(simulated):
    simulated.set_status(0x04)
    delivery = orvante.Delivery(simulated.uri, first_pause=0.02, longest_pause=0.05)
    reasons = []

    def waiting(wait):
        reasons.append(wait.reason)
        if wait.fault is not None and wait.fault.out_of_paper:
            simulated.set_status(0)  # the paper is refilled
    delivery.on_waiting(waiting)
    assert delivery.print(shipping_label()).ready
    assert delivery.waited and "out of paper" in reasons

    # stop() from another thread ends the waiting label with Delivery.Stopped.
    simulated.set_status(0x01)
    delivery.on_waiting(lambda wait: threading.Thread(target=delivery.stop).start())
    with pytest.raises(orvante.Delivery.Stopped):
        delivery.print(b"PRINT 1\r\n")
    assert issubclass(orvante.Delivery.Stopped, orvante.Error)
