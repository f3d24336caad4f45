"""One index run at a time: a lock file beside the index that names who holds it."""

import fcntl
import os
import socket
import time
from collections.abc import Iterator
from contextlib import contextmanager
from datetime import datetime
from pathlib import Path

from codeindex.exceptions import IndexFileError, TryAgainLaterError

_ASK_EVERY_SECONDS = 0.05


@contextmanager
def writer_lock(index: Path, patience_seconds: float) -> Iterator[None]:
    """Hold the one right to fill an index, of all threads and processes of the machine.

    The system gives it back when the process ends, however that ends; the file stays. Raises
    TryAgainLaterError, which names the holder, when waiting `patience_seconds` was not enough,
    and IndexFileError when the lock file cannot be made.
    """
    path = index.with_name(index.name + "-lock")
    try:
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o600)
    except OSError as error:
        raise IndexFileError(f"The index {index} cannot be written: {error}.") from error
    try:
        deadline = time.monotonic() + patience_seconds
        while not _locked(descriptor):
            if time.monotonic() >= deadline:
                holder = os.pread(descriptor, 500, 0).decode("utf-8", "replace")
                raise TryAgainLaterError(
                    f"The index {index} is being filled by {holder or 'another process'}; "
                    "try again when that is done."
                )
            time.sleep(_ASK_EVERY_SECONDS)
        since = datetime.now().astimezone().isoformat(" ", "seconds")
        holder = f"process {os.getpid()} on {socket.gethostname()} since {since}"
        os.ftruncate(descriptor, 0)
        os.pwrite(descriptor, holder.encode(), 0)
        yield
    finally:
        os.close(descriptor)


def _locked(descriptor: int) -> bool:
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        return False
    return True
