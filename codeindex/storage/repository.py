"""The index of one repository: what retrieval reads, and what an index run writes."""

import sqlite3
from collections.abc import Iterable, Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

from codeindex.models.symbol import ExtractedSymbol, StoredSymbol
from codeindex.storage.connections import Connections
from codeindex.storage.repository_retrieval import SYMBOL_COLUMNS, RetrievalQueries


@dataclass(frozen=True, slots=True)
class IndexedFile:
    """What the index knows of one file.

    `stamp` is None when the file was read so soon after a change that another change could have
    left the same stamp.
    """

    language: str
    stamp: str | None
    digest: bytes


class Repository(RetrievalQueries):
    """The index of one repository, in one SQLite file. Safe from any thread."""

    def __init__(self, path: Path) -> None:
        """Open or create the index file; raises IndexFileError when that cannot be done."""
        super().__init__(Connections(path))

    def close(self) -> None:
        """Release the file; no other method may be called afterwards."""
        self._connections.close()

    def indexing_version(self) -> int:
        """Return the version of the code that filled this index; 0 when none did."""
        with self._connections.reading() as connection:
            return int(connection.execute("SELECT indexing FROM state").fetchone()[0])

    def indexed_files(self) -> dict[str, IndexedFile]:
        """Return what is known of each file, by path."""
        with self._connections.reading() as connection:
            rows = connection.execute("SELECT path, language, stamp, digest FROM file").fetchall()
        return {row[0]: IndexedFile(*row[1:]) for row in rows}

    def symbol_count(self) -> int:
        """Return how many symbols the index holds."""
        with self._connections.reading() as connection:
            return int(connection.execute("SELECT count(*) FROM symbol").fetchone()[0])

    def symbols_to_embed(self, model: str) -> list[StoredSymbol]:
        """Return the symbols that have no embedding by `model`, by id."""
        statement = f"""
            SELECT {SYMBOL_COLUMNS} FROM symbol JOIN file ON file.id = symbol.file_id
            WHERE NOT EXISTS (
                SELECT 1 FROM embedding WHERE symbol_id = symbol.id AND model = ?)
            ORDER BY symbol.id
        """
        with self._connections.reading() as connection:
            rows = connection.execute(statement, (model,)).fetchall()
        return [StoredSymbol(*row) for row in rows]

    @contextmanager
    def writing(self) -> Iterator["IndexWriter"]:
        """Change the index in one transaction: all of it is kept, or none after an error.

        One writer at a time; raises TryAgainLaterError when another keeps this one waiting.
        """
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

    def begin_version(self, version: int) -> None:
        """Drop all embeddings: from here on this version of the code fills the index."""
        self._connection.execute("UPDATE state SET indexing = ?", (version,))
        self._connection.execute("DELETE FROM embedding")
        self._vectors_changed = True

    def put_file(
        self, path: str, file: IndexedFile, symbols: Sequence[ExtractedSymbol] | None
    ) -> None:
        """Store a file and, unless None, its symbols in place of those it had.

        A symbol that is the same but for its lines keeps its id and its embedding.
        """
        (file_id,) = self._connection.execute(
            "INSERT INTO file (path, language, stamp, digest) VALUES (?, ?, ?, ?) "
            "ON CONFLICT (path) DO UPDATE SET language = excluded.language, "
            "stamp = excluded.stamp, digest = excluded.digest RETURNING id",
            (path, file.language, file.stamp, file.digest),
        ).fetchone()
        if symbols is not None:
            self._replace_symbols(file_id, symbols)

    def remove_file(self, path: str) -> None:
        """Remove a file with its symbols and their embeddings."""
        self._connection.execute("DELETE FROM file WHERE path = ?", (path,))
        self._symbols_changed = self._vectors_changed = True

    def put_embeddings(self, model: str, vectors: Iterable[tuple[int, bytes]]) -> None:
        """Store embeddings by symbol id, each in place of the one the symbol had."""
        # A symbol that went away meanwhile takes no embedding.
        self._connection.executemany(
            "INSERT OR REPLACE INTO embedding (symbol_id, model, vector) "
            "SELECT id, ?2, ?3 FROM symbol WHERE id = ?1",
            ((symbol_id, model, vector) for symbol_id, vector in vectors),
        )
        self._vectors_changed = True

    def finish(self) -> None:
        """Move the marks of what has changed; the transaction's last statement."""
        self._connection.execute(
            "UPDATE state SET revision = revision + ?, vectors = vectors + ?",
            (self._symbols_changed, self._vectors_changed),
        )

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
        for new in symbols:
            same = known.get((new.fqn, new.name, new.kind, new.signature, new.docstring))
            if not same:
                added.append(
                    (
                        *(file_id, new.fqn, new.name, new.kind, new.start_line, new.end_line),
                        *(new.signature, new.docstring),
                    )
                )
                continue
            start_line, end_line, symbol_id = same.pop()
            if (start_line, end_line) != (new.start_line, new.end_line):
                moved.append((new.start_line, new.end_line, symbol_id))
        gone = [(symbol_id,) for rows in known.values() for _, _, symbol_id in rows]
        self._connection.executemany("DELETE FROM symbol WHERE id = ?", gone)
        self._connection.executemany(
            "UPDATE symbol SET start_line = ?, end_line = ? WHERE id = ?", moved
        )
        self._connection.executemany(
            "INSERT INTO symbol (file_id, fqn, name, kind, start_line, end_line, signature, "
            "docstring) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
            added,
        )
        self._symbols_changed |= bool(added or moved or gone)
        self._vectors_changed |= bool(gone)
