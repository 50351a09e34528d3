import doctest
import importlib
import inspect
import pkgutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import orvo_timing

MODULES = [f"orvo_timing.{module.name}" for module in pkgutil.iter_modules(orvo_timing.__path__) if module.name != "_core"]


@pytest.mark.parametrize("name", ["orvo_timing", *MODULES])
def test_examples_in_docstrings_show_what_comes_out(name, example):
    if name.endswith(".many"):
        pytest.importorskip("dask")
    module = importlib.import_module(name)
    names = {"orvo_timing": orvo_timing, "example": str(example), "np": np}
    for test in doctest.DocTestFinder(exclude_empty=True).find(module, extraglobs=names):
        result = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE).run(test)
        assert result.failed == 0, test.name


def public_things():
    for name in orvo_timing.__all__:
        thing = getattr(orvo_timing, name)
        if inspect.isclass(thing) or inspect.isfunction(thing):
            yield name, thing
            for inner, member in vars(thing).items() if inspect.isclass(thing) else ():
                if not inner.startswith("_") and (inspect.isfunction(member) or isinstance(member, property)):
                    yield f"{name}.{inner}", member


@pytest.mark.parametrize(("name", "thing"), [pytest.param(*item, id=item[0]) for item in public_things()])
def test_everything_public_says_what_it_is(name, thing):
    if name.split(".")[-1] in {"pending_bytes", "late_tags", "waiting"} or isinstance(thing, property) and not thing.__doc__:
        return  # an attribute that its class describes
    assert inspect.getdoc(thing), name


@pytest.mark.parametrize(
    "name", ["open", "write", "merge_times", "xcorr_histogram", "estimate_offset_ps", "XcorrStream", "Decoder", "Header"]
)
def test_functions_have_parameters_errors_and_an_example(name):
    text = inspect.getdoc(getattr(orvo_timing, name))
    for heading in ("Parameters\n---", "Raises\n---", "Examples\n---", ">>> "):
        assert heading in text


def test_help_is_readable():
    text = subprocess.run(
        [sys.executable, "-c", "import orvo_timing; help(orvo_timing.xcorr_histogram)"], capture_output=True, text=True, check=True
    ).stdout
    assert "Correlate two lists of times" in text and "object at 0x" not in text


def test_types_are_clean():
    pytest.importorskip("mypy")
    package = Path(orvo_timing.__file__).resolve().parent
    assert (package / "py.typed").exists()
    settings = package.parent / "pyproject.toml"
    if not settings.exists():
        pytest.skip("the installed package, without its settings for mypy")
    command = [sys.executable, "-m", "mypy", "--config-file", str(settings), str(package)]
    result = subprocess.run(command, capture_output=True, text=True, cwd=package.parent)
    assert result.returncode == 0, result.stdout


def test_version_is_that_of_the_library():
    assert orvo_timing.__version__.count(".") == 2
