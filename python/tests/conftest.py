from __future__ import annotations

import numpy as np
import pytest

import plain


@pytest.fixture
def example(tmp_path):
    return plain.write_example(tmp_path / "example.tagcap")


@pytest.fixture
def rng():
    return np.random.default_rng(20260307)
