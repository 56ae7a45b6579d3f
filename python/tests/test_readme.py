"""The README's Python examples run as written, against the virtual printer."""

import os
import re
from pathlib import Path


def examples():
    readme = Path(os.environ["ORVANTE_README"]).read_text()
    section = readme[readme.index("## Python"):readme.index("## The command-line tool")]
    return re.findall(r"```python\n(.*?)```", section, re.S)


def run(example, vprinter):
    assert "tcp://127.0.0.1:9100" in example
    exec(compile(example.replace(":9100", f":{vprinter.port}"), "README.md", "exec"), {})


def test_readme_example_prints(vprinter, capsys):
    run(examples()[0], vprinter)
    assert capsys.readouterr().out.startswith("ORVANTE VP-1 ready")
    assert len(vprinter.labels(1)) == 1


def test_readme_batch_example_prints_every_label(vprinter, capsys, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)  # where its journal goes
    run(examples()[1], vprinter)
    assert capsys.readouterr().out.endswith("2/2 \nprinted 2 of 2\n")
    assert len(vprinter.labels(3)) == 3  # the second record's two copies
