import ast
import inspect
import os
import pathlib
import re
import subprocess
import sys

import rawimage
import rawimage._rawimage as native

ROOT = pathlib.Path(__file__).parents[2]


def test_the_stub_has_what_the_extension_has():
    stub = ast.parse(pathlib.Path(rawimage.__file__).with_name("_rawimage.pyi").read_text())
    stated = {}
    for node in stub.body:
        if isinstance(node, ast.ClassDef):
            members = (getattr(n, "name", None) or n.target.id for n in node.body if not isinstance(n, ast.Expr))
            stated[node.name] = {name for name in members if not name.startswith("__")}
        elif isinstance(node, ast.FunctionDef):
            stated[node.name] = None
    actual = {}
    for name, value in vars(native).items():
        if inspect.isclass(value):
            actual[name] = {n for n in vars(value) if not n.startswith("__") and n not in ("_fields", "_pybind11_conduit_v1_")}
        elif callable(value):
            actual[name] = None
    assert stated == actual


def test_help_explains_everything():
    for name in rawimage.__all__:
        value = getattr(rawimage, name)
        if not callable(value):
            continue
        assert inspect.getdoc(value), name
        for member, what in vars(value).items() if inspect.isclass(value) else ():
            if not member.startswith("_") and callable(what) or isinstance(what, property):
                assert member.startswith("_") or inspect.getdoc(what), f"{name}.{member}"


def test_the_examples_of_the_manual_run(tmp_path):
    page = (ROOT / "docs/python.md").read_text()
    blocks = re.findall(r"^```python\n(.*?)^```$", page, re.M | re.S)
    assert len(blocks) > 4
    script = tmp_path / "examples.py"
    script.write_text("\n".join(blocks))
    subprocess.run([sys.executable, "-W", "error", script], cwd=tmp_path, check=True)


def test_installed_where_python_finds_it(build, tmp_path):
    def folder(prefix):
        command = [sys.executable, ROOT / "python/install_folder.py", prefix]
        return os.path.join(prefix, subprocess.run(command, capture_output=True, check=True, text=True).stdout.strip())

    assert folder("/usr") in sys.path and folder("/usr/local") in sys.path
    command = ["cmake", "--install", build, "--component", "python", "--prefix", tmp_path]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    (package,) = tmp_path.rglob("rawimage/__init__.py")
    environment = {**os.environ, "PYTHONPATH": str(package.parents[1])}
    code = "import rawimage; print(rawimage.__file__, rawimage.__version__)"
    found = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, check=True, text=True)
    assert found.stdout.split() == [str(package), rawimage.__version__]
    assert (package.parent / "py.typed").exists() and (package.parent / "_rawimage.pyi").exists()
