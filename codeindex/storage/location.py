"""Where the index of a repository lies unless the user says otherwise."""

import hashlib
import re
from pathlib import Path

import platformdirs


def default_index_path(root: Path) -> Path:
    """Return the index file in the user's cache folder that belongs to this repository root.

    `root` is absolute and free of links; another root has another file.
    """
    digest = hashlib.sha256(str(root).encode("utf-8", "surrogateescape")).hexdigest()[:12]
    name = re.sub(r"[^A-Za-z0-9._-]+", "-", root.name)[:40] or "root"
    return platformdirs.user_cache_path("codeindex") / f"{name}-{digest}.sqlite"
