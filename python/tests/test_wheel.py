"""The wheel by itself: built from the checkout, installed into an empty directory, used from elsewhere."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

import plain

PACKAGE = Path(__file__).resolve().parent.parent

USE = """
import sys, orvo_timing
assert orvo_timing.__file__.startswith(sys.argv[1]), orvo_timing.__file__
a, b = orvo_timing.open(sys.argv[2]).times()[:2]
print(orvo_timing.xcorr_histogram(a, b, 500, 8, 160).peak.count)
"""


@pytest.mark.skipif("ORVO_TEST_WHEEL" not in os.environ, reason="ORVO_TEST_WHEEL=1 builds and installs the wheel")
def test_the_wheel_works_in_an_empty_directory_without_the_checkout(tmp_path):
    pip = [sys.executable, "-m", "pip", "--disable-pip-version-check"]
    target = tmp_path / "site"
    environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    environment["CFLAGS"] = "-O0"  # the other tests run what is optimised

    def run(command, **more):
        return subprocess.run(command, check=True, capture_output=True, text=True, env=environment, **more).stdout

    wheels = tmp_path / "wheels"
    run([*pip, "wheel", "--no-build-isolation", "--no-deps", "--no-index", "-w", str(wheels), str(PACKAGE)])
    (wheel,) = wheels.glob("orvo_timing-*.whl")
    run([*pip, "install", "--no-deps", "--no-index", "--target", str(target), str(wheel)])
    assert (target / "orvo_timing" / "py.typed").exists() and (target / "orvo_timing" / "_core.pyi").exists()
    example = plain.write_example(tmp_path / "example.tagcap")
    environment["PYTHONPATH"] = str(target)
    assert run([sys.executable, "-c", USE, str(target), str(example)], cwd=tmp_path) == "1000\n"
