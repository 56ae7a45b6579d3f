"""The GIL is released while a call waits on a printer or renders: other
Python threads go on meanwhile."""

import threading
import time

import pytest

import orvante


def test_other_threads_run_while_print_waits_on_a_slow_printer(simulated):
    simulated.set_takes_bytes(False)
    counted = 0
    done = threading.Event()

    def count():
        nonlocal counted
        while not done.is_set():
            counted += 1
    counter = threading.Thread(target=count)
    # Only a thread that runs while print() waits can let the printer go on:
    # with the GIL held, print() would stall until its timeout and fail.
    release = threading.Timer(0.5, simulated.set_takes_bytes, args=(True,))
    label = orvante.Label().download("SLOW.BIN", bytes(100_000)).print()
    with orvante.Printer.open(simulated.uri) as printer:
        printer.set_stall_timeout(5.0)
        counter.start()
        release.start()
        started = time.monotonic()
        try:
            printer.print(label)
        finally:
            done.set()
            counter.join()
            release.cancel()
        assert time.monotonic() - started >= 0.4
    assert counted > 1000
    assert simulated.wait_for_bytes(len(bytes(label)))


def test_close_from_another_thread_ends_a_waiting_call(simulated):
    simulated.set_takes_bytes(False)
    with orvante.Printer.open(simulated.uri) as printer:
        threading.Timer(0.2, printer.close).start()
        with pytest.raises(orvante.Error, match="closed"):
            printer.send(bytes(10_000))


def test_a_label_shared_by_threads_that_render_keeps_every_element_whole():
    def build(label):
        for _ in range(5):
            label.rendered_text(0, 0, "DejaVu Sans", 40, "Parallel")
    element = bytes(orvante.Label().rendered_text(0, 0, "DejaVu Sans", 40, "Parallel"))
    shared = orvante.Label()
    threads = [threading.Thread(target=build, args=(shared,)) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert bytes(shared) == element * 20
