"""A progress bar for work that a person waits for."""

from __future__ import annotations

import sys
import time
from types import TracebackType
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from rich.progress import Progress, TaskID

_SHOW_AFTER_SECONDS = 1.0


class ProgressBar:
    """Shows the steps of a run on stderr when it is a terminal and the run takes over a second.

    A context manager; the bar is gone when it ends. Used by one thread.
    """

    def __init__(self) -> None:
        """Begin to count the time."""
        self._started = time.monotonic()
        self._bar: Progress | None = None
        self._tasks: dict[str, TaskID] = {}

    def __enter__(self) -> ProgressBar:
        """Return the bar itself, which is called with each step's name, work done and total."""
        return self

    def __call__(self, step: str, done: int, total: int) -> None:
        """Show that `done` of `total` pieces of a step are done."""
        if self._bar is None:
            waited = time.monotonic() - self._started
            if waited < _SHOW_AFTER_SECONDS or done == total or not sys.stderr.isatty():
                return
            self._bar = _new_bar()
            self._bar.start()
        if step not in self._tasks:
            self._tasks[step] = self._bar.add_task(step.capitalize(), total=total)
        self._bar.update(self._tasks[step], completed=done, total=total)

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        """Take the bar away."""
        if self._bar is not None:
            self._bar.stop()


def _new_bar() -> Progress:
    from rich.console import Console
    from rich.progress import BarColumn, MofNCompleteColumn, Progress, TextColumn
    from rich.progress import TimeRemainingColumn as TimeLeft

    return Progress(
        TextColumn("{task.description}"),
        BarColumn(),
        MofNCompleteColumn(),
        TimeLeft(),
        console=Console(stderr=True),
        transient=True,
    )
