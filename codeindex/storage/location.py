"""Where the index of a repository lies unless the user says otherwise."""

import hashlib
import re
from pathlib import Path

import platformdirs

from codeindex.exceptions import IndexFileError


def default_index_path(root: Path) -> Path:
    """Return the index file in the user's cache folder that belongs to this repository root.

    `root` is absolute and free of links; another root has another file. Raises IndexFileError
    when the user has no home folder.
    """
    digest = hashlib.sha256(str(root).encode("utf-8", "surrogateescape")).hexdigest()[:12]
    name = re.sub(r"[^A-Za-z0-9._-]+", "-", root.name)[:40] or "root"
    try:
        folder = platformdirs.user_cache_path("codeindex")
    except RuntimeError as error:
        raise IndexFileError(
            "There is no home folder to keep the index in. "
            "Set HOME or XDG_CACHE_HOME, or choose an index file."
        ) from error
    return folder / f"{name}-{digest}.sqlite"
