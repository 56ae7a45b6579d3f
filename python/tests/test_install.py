"""cmake --install puts the module where the prefix's Python finds it, and
the installed extension finds the prefix's libraries."""

import os
import subprocess
import sys
from pathlib import Path


def test_installed_module_imports_from_its_prefix(tmp_path):
    prefix = tmp_path / "prefix"
    subprocess.run(["cmake", "--install", os.environ["ORVANTE_BUILD_DIR"], "--prefix", str(prefix)],
                   check=True, capture_output=True)
    site = prefix / os.environ["ORVANTE_PYTHON_INSTALL_DIR"]
    assert (site / "orvante" / "__init__.pyi").exists() and (site / "orvante" / "py.typed").exists()
    check = """
import orvante, pathlib
label = orvante.Label().size(20, 10).clear().text(10, 10, "3", "installed").print()
assert len(orvante.preview(label)) == 1
print(orvante.__file__)
print("\\n".join(line.split()[-1] for line in pathlib.Path("/proc/self/maps").read_text().splitlines()
                if "liborvante" in line))
"""
    environment = {key: value for key, value in os.environ.items()
                   if key not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    environment["PYTHONPATH"] = str(site)
    lines = subprocess.run([sys.executable, "-c", check], cwd=tmp_path, env=environment,
                           check=True, capture_output=True, text=True).stdout.splitlines()
    assert Path(lines[0]).is_relative_to(site)
    assert all(Path(library).resolve().is_relative_to(prefix.resolve()) for library in lines[1:])
