"""Fixtures of the Python module's tests: the virtual printer as a process
on the loopback interface, printers simulated in this process, and the C++
door's bytes for the same labels."""

import os
import subprocess
import time
import uuid
from pathlib import Path

import pytest

import orvante


class VirtualPrinter:
    """orvante-vprinter on 127.0.0.1, a free port, writing PNGs to a folder."""

    def __init__(self, folder: Path):
        self.out = folder / "labels"
        port_file = folder / "port"
        self.process = subprocess.Popen(
            [os.environ["ORVANTE_VPRINTER"], "--listen", "127.0.0.1:0",
             "--port-file", str(port_file), "--out", str(self.out)],
            stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
        deadline = time.monotonic() + 10
        while not port_file.exists():
            assert self.process.poll() is None, "the virtual printer ended at start"
            assert time.monotonic() < deadline, "the virtual printer did not start"
            time.sleep(0.02)
        self.port = int(port_file.read_text())
        self.uri = f"tcp://127.0.0.1:{self.port}"

    def set_status(self, byte: int):
        self.process.stdin.write(f"status {byte:02x}\n")
        self.process.stdin.flush()

    def labels(self, count: int, timeout: float = 10.0) -> list:
        """The PNG files of the first `count` printed labels, once written."""
        deadline = time.monotonic() + timeout
        while True:
            files = sorted(self.out.glob("label-*.png")) if self.out.exists() else []
            if len(files) >= count or time.monotonic() > deadline:
                return [path.read_bytes() for path in files]
            time.sleep(0.02)

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=10)


@pytest.fixture
def vprinter(tmp_path):
    printer = VirtualPrinter(tmp_path)
    yield printer
    printer.stop()


@pytest.fixture
def simulated():
    with orvante.testing.SimulatedPrinter(f"py-{uuid.uuid4().hex[:8]}") as printer:
        yield printer


@pytest.fixture
def reference(tmp_path):
    """reference(case, *arguments): the bytes the C++ door builds for a case."""
    def run(case, *arguments):
        return subprocess.run([os.environ["ORVANTE_REFERENCE_LABELS"], case, *arguments],
                              check=True, capture_output=True).stdout
    return run
