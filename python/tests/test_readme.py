"""The README's Python example runs as written, against the virtual printer."""

import os
import re
from pathlib import Path


def test_readme_example_prints(vprinter, capsys):
    readme = Path(os.environ["ORVANTE_README"]).read_text()
    section = readme[readme.index("## Python"):]
    example = re.search(r"```python\n(.*?)```", section, re.S).group(1)
    assert 'orvante.Printer.open("tcp://127.0.0.1:9100", timeout=5.0)' in example
    exec(compile(example.replace(":9100", f":{vprinter.port}"), "README.md", "exec"), {})
    assert capsys.readouterr().out.startswith("ORVANTE VP-1 ready")
    assert len(vprinter.labels(1)) == 1
