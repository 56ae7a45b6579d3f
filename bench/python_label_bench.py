#!/usr/bin/python3
"""What a Label call costs from Python over the same call in C++.

    /usr/bin/python3 bench/python_label_bench.py [build/default]

Runs label_building_bench (C++) and times the same calls through the
module in the build folder, then prints both and the cost of the Python
layer per call: the README's shipping label (seven calls from the
constructor to print()) and one text() call.
"""

import json
import subprocess
import sys
import timeit
from pathlib import Path

build = Path(sys.argv[1] if len(sys.argv) > 1 else "build/default")
sys.path.insert(0, str(build / "python"))
import orvante  # noqa: E402


def shipping_label():
    return (orvante.Label(dpi=203).size(50, 30).gap(2).clear()
            .text(20, 20, "3", "Hello")
            .barcode(20, 80, "128", "ABC-123", height=60)
            .print())


def text_lines(count=1000):
    label = orvante.Label(dpi=203)
    for _ in range(count):
        label.text(20, 20, "3", "Hello")


def best_of(function, number, repeat=7):
    """Nanoseconds per call of the fastest of several runs (the C++ side: the median)."""
    return min(timeit.repeat(function, number=number, repeat=repeat)) / number * 1e9


def cpp_figures():
    output = subprocess.run([str(build / "bench" / "label_building_bench"),
                             "--benchmark_format=json", "--benchmark_repetitions=5",
                             "--benchmark_report_aggregates_only=true"],
                            check=True, capture_output=True, text=True).stdout
    return {entry["run_name"]: entry["real_time"] for entry in json.loads(output)["benchmarks"]
            if entry.get("aggregate_name") == "median"}


def main():
    cpp = cpp_figures()
    python = {
        "shippingLabel": best_of(shipping_label, 20000),
        # One call: a thousand lines per timed run.
        "textLine": best_of(text_lines, 20) / 1000,
    }
    calls = {"shippingLabel": 7, "textLine": 1}
    print(f"{'label':<16}{'C++ ns':>10}{'Python ns':>12}{'ratio':>8}{'Python ns/call over C++':>26}")
    for name in ("shippingLabel", "textLine"):
        over = (python[name] - cpp[name]) / calls[name]
        print(f"{name:<16}{cpp[name]:>10.0f}{python[name]:>12.0f}{python[name] / cpp[name]:>8.1f}"
              f"{over:>26.0f}")


if __name__ == "__main__":
    main()
