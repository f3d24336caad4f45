"""What an index holds, as it stands: read from the file alone, without a look at the repository."""

from collections import Counter
from contextlib import closing
from dataclasses import dataclass
from pathlib import Path

from codeindex.storage.location import default_index_path
from codeindex.storage.repository import Repository, SkippedFiles


@dataclass(frozen=True, slots=True)
class IndexStatus:
    """The state of one index.

    `whole` says whether a run ever read every file to the end; `bytes` is the size of the file
    `index`; `languages` counts the indexed files by language, and `skipped` tells of the others.
    """

    index: Path
    bytes: int
    whole: bool
    files: int
    symbols: int
    languages: dict[str, int]
    skipped: list[SkippedFiles]


def read_status(root: Path, index_file: Path | None = None) -> IndexStatus:
    """Return the state of the index of the repository at `root`, an absolute path free of links.

    An index that does not exist is not made, and holds nothing. Raises IndexFileError when the
    file is no index.
    """
    path = default_index_path(root) if index_file is None else index_file
    if not path.exists():
        return IndexStatus(path, 0, False, 0, 0, {}, [])
    with closing(Repository(path)) as repository:
        files = [file for file in repository.indexed_files().values() if file.skipped is None]
        return IndexStatus(
            path,
            path.stat().st_size,
            repository.is_whole(),
            len(files),
            repository.symbol_count(),
            dict(sorted(Counter(file.language for file in files).items())),
            repository.skipped_files(),
        )
