"""The package and its extension module; everything else is in pyproject.toml."""

import os
import re
from pathlib import Path

from pybind11.setup_helpers import ParallelCompile, Pybind11Extension
from setuptools import setup

HERE = Path(__file__).resolve().parent
HEADERS = HERE.parent / "host" / "cpp" / "include"


def version() -> str:
    text = (HEADERS / "orvo/timing/version.hpp").read_text()
    return ".".join(re.findall(r"^#define ORVO_TIMING_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text, re.MULTILINE))


ParallelCompile("ORVO_BUILD_JOBS", default=0).install()  # as many as there are cores

setup(
    version=version(),
    ext_modules=[
        Pybind11Extension(
            "orvo_timing._core",
            sorted(str(path.relative_to(HERE)) for path in HERE.glob("src/*.cpp")),
            include_dirs=[str(HEADERS)],
            depends=[str(path) for path in [*HERE.glob("src/*.hpp"), *HEADERS.rglob("*.hpp")]],
            cxx_std=20,
            extra_compile_args=["-g0"] if "-O" in os.environ.get("CFLAGS", "") else ["-g0", "-O3"],
        )
    ],
)
