"""The module as built: one private copy of the library, and type stubs
and docstrings for what the module has."""

import ast
import inspect
import shutil
import subprocess
from pathlib import Path

import pytest

import orvante
import orvante._orvante as extension


def test_the_extension_holds_one_private_copy_of_the_library():
    maps = Path("/proc/self/maps").read_text()
    assert "liborvante.so" not in maps, "the extension links the static library"
    if shutil.which("nm") is None:
        pytest.skip("nm is not installed")
    listing = subprocess.run(["nm", "-D", "--defined-only", extension.__file__],
                             check=True, capture_output=True, text=True).stdout
    assert [line.split()[-1] for line in listing.splitlines()] == ["PyInit__orvante"]


def stub_names(path):
    """{name: set of public member names} of the classes, and the functions, in a stub."""
    tree = ast.parse(Path(path).read_text())
    names = {}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            names[node.name] = {item.name for item in node.body
                                if isinstance(item, (ast.FunctionDef, ast.ClassDef))
                                and not item.name.startswith("__")}
        elif isinstance(node, ast.FunctionDef):
            names[node.name] = set()
    return names


def runtime_names(module, names):
    found = {}
    for name in names:
        value = getattr(module, name)
        found[name] = {member for member, _ in inspect.getmembers(value)
                       if not member.startswith("__")} if inspect.isclass(value) else set()
    return found


def test_stubs_name_what_the_module_has():
    package = Path(orvante.__file__).parent
    for module, stub in [(orvante, "__init__.pyi"), (orvante.testing, "testing.pyi")]:
        public = set(getattr(module, "__all__")) - {"testing"}
        stubs = stub_names(package / stub)
        assert set(stubs) == public
        runtime = runtime_names(module, public)
        for name in public:
            # Exceptions inherit what the stub need not repeat.
            value = getattr(module, name)
            exception = inspect.isclass(value) and issubclass(value, BaseException)
            missing = stubs[name] ^ runtime[name] if not exception else set()
            assert not missing, f"{name}: {sorted(missing)}"

    # Docstrings come with the names.
    assert "Text from users is safe here" in orvante.Label.__doc__
    assert "tcp://host[:port]" in orvante.Printer.open.__doc__
    assert "resume=True" in orvante.Batch.print.__doc__
    assert "elements[3].x" in orvante.TemplateError.__doc__
