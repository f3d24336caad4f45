"""The plain way to search code: BM25 over chunks of lines."""

import sqlite3
from pathlib import Path

from codeindex.indexing.discovery import find_source_files
from codeindex.utils.path_filter import is_test_path
from codeindex.workers.retrieval import query_terms, split_identifier

LINES = 50


class ChunkIndex:
    """The chunks of 50 lines of all files but tests, in an FTS5 table with SQLite's own BM25.

    Identifiers are split into words and words are stemmed, in chunks and questions, as in the
    text tables of the index: what differs is what is ranked. Used by the thread that made it.
    """

    def __init__(self, root: Path) -> None:
        """Read the files below `root`."""
        self._places: list[tuple[str, int]] = []  # path and first line, by row
        self._table = sqlite3.connect(":memory:")
        self._table.execute("CREATE VIRTUAL TABLE chunk USING fts5(words, tokenize='porter')")
        for file in find_source_files(root):
            if is_test_path(file.path):
                continue
            lines = (root / file.path).read_text("utf-8", "replace").split("\n")
            for first in range(0, len(lines), LINES):
                words = " ".join(split_identifier("\n".join(lines[first : first + LINES])))
                self._table.execute(
                    "INSERT INTO chunk (rowid, words) VALUES (?, ?)", (len(self._places), words)
                )
                self._places.append((file.path, first + 1))

    def best(self, question: str, depth: int) -> list[tuple[str, int]]:
        """Return path and first line, counted from 1, of the best chunks, best first."""
        match = " OR ".join(f'"{term}"' for term in query_terms(question))
        rows = self._table.execute(
            "SELECT rowid FROM chunk WHERE chunk MATCH ? ORDER BY rank, rowid LIMIT ?",
            (match, depth),
        )
        return [self._places[row] for (row,) in rows]

    def close(self) -> None:
        """Release the table."""
        self._table.close()
