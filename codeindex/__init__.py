"""Hybrid code retrieval over one repository: by name, by words, by file and by meaning, offline.

with codeindex.open("path/to/repository") as index:
    for hit in index.ask("where are sessions signed?", scope="src"):
        print(hit.symbol.fqn, hit.symbol.path, hit.symbol.start_line)
"""

from __future__ import annotations

import os
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from codeindex.api import Index

__all__ = ["__version__", "open"]
__version__ = "0.1.0"


def open(
    path: str | os.PathLike[str] = ".", *, index_file: str | os.PathLike[str] | None = None
) -> Index:
    """Open the index of the repository whose folder is `path`; nothing is indexed yet.

    The index lies in the user's cache folder unless `index_file` says otherwise. Raises
    CodeIndexError when there is no such folder or the index file cannot be opened.
    """
    from codeindex.api import Index

    return Index(path, index_file)
