"""The notebooks among the examples run from top to bottom, and show what comes out today."""

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

NOTEBOOKS = sorted((Path(__file__).resolve().parents[2] / "examples").glob("*.ipynb"))


def texts_of(notebook):
    """What the cells print and give, without pictures."""
    outputs = (output for cell in notebook["cells"] for output in cell.get("outputs", ()))
    return ["".join(output.get("text") or output["data"]["text/plain"]) for output in outputs]


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.name)
def test_a_notebook_shows_what_it_gives(path, tmp_path):
    for module in ("nbconvert", "ipykernel", "matplotlib"):
        pytest.importorskip(module)
    for name in ("vq_simulate_stream_file", "vq_inspect_stream_file"):
        if not shutil.which(name, path=os.environ.get("ORVO_TIMING_PROGRAMS", os.defpath)):
            pytest.skip(f"{name} is not there")
    command = [sys.executable, "-m", "nbconvert", "--to", "notebook", "--execute", f"--output-dir={tmp_path}", str(path)]
    result = subprocess.run(command, capture_output=True, text=True, cwd=tmp_path)
    assert result.returncode == 0, result.stderr
    executed = json.loads((tmp_path / path.name).read_text())
    assert texts_of(executed) == texts_of(json.loads(path.read_text()))
