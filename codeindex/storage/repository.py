"""The index of one repository: what retrieval reads, and what an index run writes."""

import json
import math
import sqlite3
from collections.abc import Iterator, Sequence
from contextlib import AbstractContextManager, contextmanager
from dataclasses import astuple, dataclass
from itertools import groupby
from pathlib import Path
from typing import TYPE_CHECKING, NamedTuple

from codeindex.models.symbol import ExtractedSymbol
from codeindex.storage.connections import Connections
from codeindex.storage.repository_retrieval import RetrievalQueries

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt

    from codeindex.storage.vectors import VectorTable

_VECTORS_PER_BLOCK = 1024


class IndexedFile(NamedTuple):
    """What the index knows of one file.

    `stamp` is None when the file was read so soon after a change that another change could have
    left the same stamp. `skipped` says why the file's content has no symbols; None when it has.
    """

    language: str
    stamp: str | None
    digest: bytes
    skipped: str | None = None


@dataclass(frozen=True, slots=True)
class SkippedFiles:
    """Files that are left out of an index for one reason: how many, and the first of them."""

    reason: str
    count: int
    examples: tuple[str, ...]


class Repository(RetrievalQueries):
    """The index of one repository, in one SQLite file. Safe from any thread."""

    def __init__(self, path: Path) -> None:
        """Open or create the index file; raises IndexFileError when that cannot be done."""
        super().__init__(Connections(path))

    def close(self) -> None:
        """Release the file; no other method may be called afterwards."""
        self._connections.close()

    def is_whole(self) -> bool:
        """Return whether every file was read at least once, so that nothing but changes lack."""
        with self._connections.reading() as connection:
            return bool(connection.execute("SELECT whole FROM state").fetchone()[0])

    def indexed_files(self) -> dict[str, IndexedFile]:
        """Return what is known of each file, by path."""
        statement = "SELECT path, language, stamp, digest, skipped FROM file"
        with self._connections.reading() as connection:
            rows = connection.execute(statement).fetchall()
        return {row[0]: IndexedFile(*row[1:]) for row in rows}

    def skipped_on_sight(self) -> list[SkippedFiles]:
        """Return what the last run left out without reading it, as that run stored it."""
        with self._connections.reading() as connection:
            (stored,) = connection.execute("SELECT skipped FROM state").fetchone()
        return [
            SkippedFiles(reason, count, tuple(paths)) for reason, count, paths in json.loads(stored)
        ]

    def skipped_files(self) -> list[SkippedFiles]:
        """Return what is left out of the index and why, by reason."""
        with self._connections.reading() as connection:
            rows = connection.execute(
                "SELECT skipped, path FROM file WHERE skipped IS NOT NULL ORDER BY skipped, path"
            ).fetchall()
        skipped = self.skipped_on_sight()
        for reason, group in groupby(rows, key=lambda row: row[0]):
            paths = tuple(path for _, path in group)
            skipped.append(SkippedFiles(reason, len(paths), paths))
        return sorted(skipped, key=lambda files: files.reason)

    def symbol_count(self) -> int:
        """Return how many symbols the index holds."""
        with self._connections.reading() as connection:
            return int(connection.execute("SELECT count(*) FROM symbol").fetchone()[0])

    def is_embedded(self, model: str) -> bool:
        """Return whether the last run saw that every symbol has an embedding by `model`."""
        with self._connections.reading() as connection:
            row = connection.execute("SELECT revision, embedded FROM state").fetchone()
        return bool(row[1] == f"{row[0]} {model}")

    def symbols_to_embed(self, model: str) -> list[int]:
        """Return the ids of the symbols that have no embedding by `model`, in order."""
        with self._connections.reading() as connection:
            blocks = connection.execute("SELECT ids FROM vectors WHERE model = ?", (model,))
            done = {symbol_id for (ids,) in blocks for symbol_id in memoryview(ids).cast("q")}
            # Unordered, so that SQLite need not read the symbols themselves.
            rows = connection.execute("SELECT id FROM symbol").fetchall()
        return sorted(symbol_id for (symbol_id,) in rows if symbol_id not in done)

    def indexing(self) -> AbstractContextManager[None]:
        """Be the one run that fills the index, for as many transactions as it takes.

        Waits for another run, and raises TryAgainLaterError, which names it, when it takes long.
        """
        return self._connections.indexing()

    @contextmanager
    def writing(self) -> Iterator["IndexWriter"]:
        """Change the index in one transaction: all of it is kept, or none after an error."""
        with self._connections.writing() as connection:
            writer = IndexWriter(connection)
            yield writer
            writer.finish()


class IndexWriter:
    """The changes of one transaction; used by the thread that began it."""

    def __init__(self, connection: sqlite3.Connection) -> None:
        """Write through `connection`, which is in a transaction."""
        self._connection = connection
        self._symbols_changed = False
        self._vectors_changed = False
        self._gone: list[int] = []

    def put_file(
        self, path: str, file: IndexedFile, symbols: Sequence[ExtractedSymbol] | None
    ) -> None:
        """Store a file and, unless None, its symbols in place of those it had.

        A symbol that is the same but for its lines keeps its id and its embedding.
        """
        (file_id,) = self._connection.execute(
            "INSERT INTO file (path, language, stamp, digest, skipped) VALUES (?, ?, ?, ?, ?) "
            "ON CONFLICT (path) DO UPDATE SET language = excluded.language, "
            "stamp = excluded.stamp, digest = excluded.digest, skipped = excluded.skipped "
            "RETURNING id",
            (path, file.language, file.stamp, file.digest, file.skipped),
        ).fetchone()
        if symbols is not None:
            self._replace_symbols(file_id, symbols)

    def remove_file(self, path: str) -> None:
        """Remove a file with its symbols and their embeddings."""
        rows = self._connection.execute(
            "SELECT symbol.id FROM file JOIN symbol ON file_id = file.id WHERE path = ?", (path,)
        ).fetchall()
        self._connection.execute("DELETE FROM file WHERE path = ?", (path,))
        self._gone += (symbol_id for (symbol_id,) in rows)

    def finish_files(self, skipped: Sequence[SkippedFiles]) -> None:
        """Take down that the files are as they were found, and what was `skipped` on sight."""
        stored = json.dumps([astuple(files) for files in skipped])
        self._connection.execute("UPDATE state SET whole = 1, skipped = ?", (stored,))

    def put_embeddings(
        self, model: str, ids: Sequence[int], vectors: "npt.NDArray[np.floating]"
    ) -> None:
        """Store embeddings, rows of `vectors` (n x d), of symbols that have none by `model`.

        `ids` are in order. Embeddings by another model give way.
        """
        import numpy as np

        from codeindex.storage.vectors import VectorTable

        new = VectorTable.from_vectors(np.array(ids, dtype=np.int64), vectors)
        blocks = new.ids // _VECTORS_PER_BLOCK
        for block in np.unique(blocks).tolist():
            added = new.rows(blocks == block)
            known = self._block(block, model)
            self._put_block(block, model, added if known is None else known.followed_by(added))

    def finish_embeddings(self, model: str) -> None:
        """Take down that every symbol has an embedding by `model`."""
        self._connection.execute("UPDATE state SET embedded = revision || ' ' || ?", (model,))

    def finish(self) -> None:
        """Drop the embeddings of removed symbols and move the marks of what has changed.

        The transaction's last statement.
        """
        if self._gone:
            self._remove_embeddings()
        self._connection.execute(
            "UPDATE state SET revision = revision + ?, vectors = vectors + ?",
            (self._symbols_changed or bool(self._gone), self._vectors_changed),
        )

    def _remove_embeddings(self) -> None:
        import numpy as np

        gone = np.array(self._gone, dtype=np.int64)
        blocks = gone // _VECTORS_PER_BLOCK
        for block in np.unique(blocks).tolist():
            row = self._connection.execute(
                "SELECT model FROM vectors WHERE block = ?", (block,)
            ).fetchone()
            known = self._block(block, row[0]) if row else None
            if known is not None:
                kept = known.rows(~np.isin(known.ids, gone[blocks == block]))
                if len(kept.ids) < len(known.ids):
                    self._put_block(block, row[0], kept)

    def _block(self, block: int, model: str) -> "VectorTable | None":
        from codeindex.storage.vectors import VectorTable

        row = self._connection.execute(
            "SELECT ids, scales, coarse, fine FROM vectors WHERE block = ? AND model = ?",
            (block, model),
        ).fetchone()
        return None if row is None else VectorTable.from_bytes([row])

    def _put_block(self, block: int, model: str, vectors: "VectorTable") -> None:
        self._connection.execute(
            "INSERT OR REPLACE INTO vectors (block, model, ids, scales, coarse, fine) "
            "VALUES (?, ?, ?, ?, ?, ?)",
            (block, model, *vectors.to_bytes()),
        )
        self._vectors_changed = True

    def _replace_symbols(self, file_id: int, symbols: Sequence[ExtractedSymbol]) -> None:
        known: dict[tuple[object, ...], list[tuple[int, int, int]]] = {}
        for row in self._connection.execute(
            "SELECT fqn, name, kind, signature, docstring, start_line, end_line, id "
            "FROM symbol WHERE file_id = ? ORDER BY start_line DESC, id DESC",
            (file_id,),
        ):
            known.setdefault(row[:5], []).append(row[5:])
        added: list[tuple[object, ...]] = []
        moved: list[tuple[int, int, int]] = []
        last_line, last_id = 0, 0.0
        for new in symbols:
            same = known.get((new.fqn, new.name, new.kind, new.signature, new.docstring))
            # Symbols of one line are told apart by their ids, so these follow their order.
            if not same or (new.start_line == last_line and same[-1][2] < last_id):
                added.append(
                    (
                        *(file_id, new.fqn, new.name, new.kind, new.start_line, new.end_line),
                        *(new.signature, new.docstring),
                    )
                )
                last_line, last_id = new.start_line, math.inf
                continue
            start_line, end_line, symbol_id = same.pop()
            last_line, last_id = new.start_line, symbol_id
            if (start_line, end_line) != (new.start_line, new.end_line):
                moved.append((new.start_line, new.end_line, symbol_id))
        gone = [symbol_id for rows in known.values() for _, _, symbol_id in rows]
        self._connection.executemany("DELETE FROM symbol WHERE id = ?", ((i,) for i in gone))
        self._connection.executemany(
            "UPDATE symbol SET start_line = ?, end_line = ? WHERE id = ?", moved
        )
        self._connection.executemany(
            "INSERT INTO symbol (file_id, fqn, name, kind, start_line, end_line, signature, "
            "docstring) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
            added,
        )
        self._symbols_changed |= bool(added or moved)
        self._gone += gone
