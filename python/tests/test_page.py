"""The Python that docs/python.md shows, run from top to bottom."""

import os
import re
import shutil
from pathlib import Path

import pytest

PAGE = Path(__file__).resolve().parents[2] / "docs" / "python.md"


def blocks():
    return re.findall(r"^```python\n(.*?)^```", PAGE.read_text(), re.MULTILINE | re.DOTALL)


@pytest.mark.parametrize("index", range(len(blocks())))
def test_what_the_page_shows_runs(index, tmp_path, monkeypatch):
    if not shutil.which("vq_simulate_stream_file", path=os.environ.get("ORVO_TIMING_PROGRAMS", os.defpath)):
        pytest.skip("vq_simulate_stream_file is not there")
    if "many" in blocks()[index]:
        pytest.importorskip("dask")
    monkeypatch.chdir(tmp_path)
    exec(compile(blocks()[index], f"docs/python.md, block {index + 1}", "exec"), {"__name__": "__main__"})
