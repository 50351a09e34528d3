"""A bar for what takes long, where tqdm is installed."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import contextmanager


@contextmanager
def bar(wanted: bool, total: int, unit: str, text: str) -> Iterator[Callable[[int], None] | None]:
    """What is to be called with the amount done so far, or None."""
    if not wanted:
        yield None
        return
    try:
        from tqdm.auto import tqdm
    except ImportError:
        yield None
        return
    with tqdm(total=total, unit=unit, unit_scale=True, desc=text) as shown:

        def tell(done: int) -> None:
            shown.update(min(done, total) - shown.n)

        yield tell
        tell(total)
