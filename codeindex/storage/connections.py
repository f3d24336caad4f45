"""Connections to one index file, and the file's layout."""

import secrets
import sqlite3
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from codeindex.exceptions import IndexFileError, TryAgainLaterError
from codeindex.storage.writer_lock import writer_lock

INDEX_VERSION = 3
"""Changes with the file's layout, and whenever the same sources would give another index."""

WAIT_FOR_WRITER_SECONDS = 30.0
"""How long a run waits for another one to end."""

_APPLICATION_ID = 0x43494458
_APPLICATION_ID_AT = 68  # in the header of an SQLite file

# `state` has one row. `revision` moves with everything retrievable, `vectors` with the stored
# embeddings; `whole` is 0 until every file was read once; `embedded` names the revision and the
# model for which no embedding is missing; `skipped` is what discovery left out, as JSON.
# `file.skipped` says why a file's content has no symbols. A row of `vectors` holds the embeddings
# of the symbols whose ids begin at `block` times the size of a block.
_SCHEMA = """
CREATE TABLE state (
    index_id TEXT NOT NULL,
    revision INTEGER NOT NULL,
    vectors INTEGER NOT NULL,
    whole INTEGER NOT NULL,
    embedded TEXT NOT NULL,
    skipped TEXT NOT NULL
);
CREATE TABLE file (
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    language TEXT NOT NULL,
    stamp TEXT,
    digest BLOB NOT NULL,
    skipped TEXT
);
CREATE TABLE symbol (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    file_id INTEGER NOT NULL REFERENCES file ON DELETE CASCADE,
    fqn TEXT NOT NULL,
    name TEXT NOT NULL,
    kind TEXT NOT NULL,
    start_line INTEGER NOT NULL,
    end_line INTEGER NOT NULL,
    signature TEXT,
    docstring TEXT
);
CREATE INDEX symbol_by_place ON symbol (file_id, start_line);
CREATE TABLE vectors (
    block INTEGER PRIMARY KEY,
    model TEXT NOT NULL,
    ids BLOB NOT NULL,
    scales BLOB NOT NULL,
    coarse BLOB NOT NULL,
    fine BLOB NOT NULL
);
"""


class Connections:
    """A pool of connections to one index file; every call borrows one for its own use.

    Safe from any thread. A borrowed connection is used by one thread at a time.
    """

    def __init__(self, path: Path) -> None:
        """Open or create the file.

        Raises IndexFileError when the file is damaged, belongs to another program or cannot be
        opened. An index of another version is emptied, to be filled again.
        """
        self._path = path
        self._lock = threading.Lock()
        self._idle: list[sqlite3.Connection] = []
        self._closed = False
        try:
            path.parent.mkdir(parents=True, exist_ok=True)
        except OSError as error:
            raise IndexFileError(
                f"The index folder {path.parent} cannot be made: {error}."
            ) from error
        if not self._is_current():
            with self.indexing():
                self._close_idle()  # another process may have put a new file in its place
                if not self._is_current():
                    self._close_idle()
                    self._remove()
                    self._create()

    @contextmanager
    def reading(self) -> Iterator[sqlite3.Connection]:
        """Borrow a connection. What goes wrong in the file becomes an IndexFileError.

        A damaged index is removed, so that the next run makes it again; a file that is no index
        is left alone.
        """
        with self._lock:
            if self._closed:
                raise IndexFileError(f"The index {self._path} was closed.")
            connection = self._idle.pop() if self._idle else None
        try:
            if connection is None:
                connection = self._connect()
            yield connection
        except sqlite3.DatabaseError as error:
            raise self._explained(error) from error
        finally:
            if connection is not None:
                self._give_back(connection)

    @contextmanager
    def writing(self) -> Iterator[sqlite3.Connection]:
        """Borrow a connection inside the one writing transaction; an error undoes all of it."""
        with self.reading() as connection:
            connection.execute("BEGIN IMMEDIATE")
            try:
                yield connection
                connection.execute("COMMIT")
            finally:
                if connection.in_transaction:
                    connection.execute("ROLLBACK")

    @contextmanager
    def indexing(self) -> Iterator[None]:
        """Be the one run that fills the index, for as many transactions as it takes.

        Raises TryAgainLaterError when another run goes on for longer than one waits.
        """
        with writer_lock(self._path, WAIT_FOR_WRITER_SECONDS):
            yield

    def close(self) -> None:
        """Close every connection; those in use are closed when they are given back."""
        with self._lock:
            self._closed = True
        self._close_idle()

    def _close_idle(self) -> None:
        with self._lock:
            idle, self._idle = self._idle, []
        for connection in idle:
            connection.close()

    def _give_back(self, connection: sqlite3.Connection) -> None:
        with self._lock:
            if not self._closed:
                self._idle.append(connection)
                return
        connection.close()

    def _connect(self) -> sqlite3.Connection:
        connection = sqlite3.connect(
            self._path,
            timeout=WAIT_FOR_WRITER_SECONDS,
            isolation_level=None,
            check_same_thread=False,
        )
        try:
            owner = _pragma(connection, "application_id")
            empty = not connection.execute("SELECT 1 FROM sqlite_master LIMIT 1").fetchone()
            if owner != _APPLICATION_ID and not empty:
                raise IndexFileError(
                    f"{self._path} is a database of another program. Choose another index file."
                )
            connection.execute("PRAGMA synchronous = NORMAL")
            connection.execute("PRAGMA foreign_keys = ON")
        except BaseException:
            connection.close()
            raise
        return connection

    def _is_current(self) -> bool:
        with self.reading() as connection:
            return _pragma(connection, "user_version") == INDEX_VERSION

    def _create(self) -> None:
        with self.reading() as connection:
            connection.execute("PRAGMA journal_mode = WAL")
        with self.writing() as connection:
            for statement in _SCHEMA.split(";"):
                connection.execute(statement)
            connection.execute(
                "INSERT INTO state VALUES (?, 0, 0, 0, '', '{}')", (secrets.token_hex(8),)
            )
            connection.execute(f"PRAGMA application_id = {_APPLICATION_ID}")
            connection.execute(f"PRAGMA user_version = {INDEX_VERSION}")

    def _explained(self, error: sqlite3.DatabaseError) -> Exception:
        """Return what to raise in place of an error of SQLite's, after removing a damaged index."""
        code = getattr(error, "sqlite_errorcode", sqlite3.SQLITE_ERROR) & 0xFF
        if code == sqlite3.SQLITE_BUSY:
            return TryAgainLaterError(f"Another process is writing the index {self._path}.")
        if code == sqlite3.SQLITE_FULL:
            return IndexFileError(f"There is no space left for the index {self._path}.")
        if code not in (sqlite3.SQLITE_CORRUPT, sqlite3.SQLITE_NOTADB):
            return IndexFileError(f"The index {self._path} cannot be used: {error}.")
        if not self._is_ours():
            return IndexFileError(
                f"{self._path} is no index or a damaged one ({error}). "
                "Delete it, to have it made again, or choose another index file."
            )
        self._remove()
        return IndexFileError(
            f"The index {self._path} was damaged ({error}) and has been removed. "
            "Do the same again: it will be made anew."
        )

    def _remove(self) -> None:
        for suffix in ("", "-wal", "-shm"):
            self._path.with_name(self._path.name + suffix).unlink(missing_ok=True)

    def _is_ours(self) -> bool:
        try:
            with self._path.open("rb") as file:
                header = file.read(_APPLICATION_ID_AT + 4)
        except OSError:
            return False
        return header[_APPLICATION_ID_AT:] == _APPLICATION_ID.to_bytes(4, "big")


def _pragma(connection: sqlite3.Connection, name: str) -> int:
    return int(connection.execute(f"PRAGMA {name}").fetchone()[0])
