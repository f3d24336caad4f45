"""Connections to one index file, and the file's layout."""

import secrets
import sqlite3
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from codeindex.exceptions import IndexFileError, TryAgainLaterError

_APPLICATION_ID = 0x43494458
_SCHEMA_VERSION = 1
_WAIT_FOR_WRITER_SECONDS = 30.0

# `state` has one row. `revision` moves with everything retrievable, `vectors` with the stored
# embeddings; `indexing` is the version of the code that filled the index.
_SCHEMA = """
CREATE TABLE state (
    index_id TEXT NOT NULL,
    revision INTEGER NOT NULL,
    vectors INTEGER NOT NULL,
    indexing INTEGER NOT NULL
);
CREATE TABLE file (
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    language TEXT NOT NULL,
    stamp TEXT,
    digest BLOB NOT NULL
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
CREATE TABLE embedding (
    symbol_id INTEGER PRIMARY KEY REFERENCES symbol ON DELETE CASCADE,
    model TEXT NOT NULL,
    vector BLOB NOT NULL
);
"""


class Connections:
    """A pool of connections to one index file; every call borrows one for its own use.

    Safe from any thread. A borrowed connection is used by one thread at a time.
    """

    def __init__(self, path: Path) -> None:
        """Open or create the file.

        Raises IndexFileError when the file is damaged, belongs to another program or cannot be
        opened. An index with another layout is emptied, to be filled again.
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
        with self.reading() as connection:
            ready = _pragma(connection, "user_version") == _SCHEMA_VERSION
        if not ready:
            with self.writing() as connection:
                _create(connection)

    @contextmanager
    def reading(self) -> Iterator[sqlite3.Connection]:
        """Borrow a connection; what SQLite makes of a damaged file becomes an IndexFileError."""
        with self._lock:
            if self._closed:
                raise IndexFileError(f"The index {self._path} was closed.")
            connection = self._idle.pop() if self._idle else None
        try:
            if connection is None:
                connection = self._connect()
            yield connection
        except sqlite3.DatabaseError as error:
            if type(error) is not sqlite3.DatabaseError:
                raise
            raise IndexFileError(
                f"{self._path} is no index or a damaged one ({error}). "
                "Delete it, to have it made again, or choose another index file."
            ) from error
        finally:
            if connection is not None:
                self._give_back(connection)

    @contextmanager
    def writing(self) -> Iterator[sqlite3.Connection]:
        """Borrow a connection inside the one writing transaction; an error undoes all of it.

        Raises TryAgainLaterError when another writer holds the index for half a minute.
        """
        with self.reading() as connection:
            try:
                connection.execute("BEGIN IMMEDIATE")
            except sqlite3.OperationalError as error:
                if error.sqlite_errorcode & 0xFF != sqlite3.SQLITE_BUSY:
                    raise IndexFileError(
                        f"The index {self._path} cannot be written: {error}."
                    ) from error
                raise TryAgainLaterError(
                    f"Another process is writing the index {self._path}."
                ) from error
            try:
                yield connection
                connection.execute("COMMIT")
            finally:
                if connection.in_transaction:
                    connection.execute("ROLLBACK")

    def close(self) -> None:
        """Close every connection; those in use are closed when they are given back."""
        with self._lock:
            self._closed = True
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
        connection = None
        try:
            connection = sqlite3.connect(
                self._path,
                timeout=_WAIT_FOR_WRITER_SECONDS,
                isolation_level=None,
                check_same_thread=False,
            )
            owner = _pragma(connection, "application_id")
            empty = not connection.execute("SELECT 1 FROM sqlite_master LIMIT 1").fetchone()
            if owner != _APPLICATION_ID and not empty:
                raise IndexFileError(
                    f"{self._path} is a database of another program. Choose another index file."
                )
            connection.execute("PRAGMA journal_mode = WAL")
            connection.execute("PRAGMA synchronous = NORMAL")
            connection.execute("PRAGMA foreign_keys = ON")
        except BaseException as error:
            if connection is not None:
                connection.close()
            if isinstance(error, sqlite3.OperationalError):
                raise IndexFileError(
                    f"The index {self._path} cannot be opened: {error}."
                ) from error
            raise
        return connection


def _pragma(connection: sqlite3.Connection, name: str) -> int:
    return int(connection.execute(f"PRAGMA {name}").fetchone()[0])


def _create(connection: sqlite3.Connection) -> None:
    if _pragma(connection, "user_version") == _SCHEMA_VERSION:
        return  # another process was quicker
    for table in ("embedding", "symbol", "file", "state"):
        connection.execute(f"DROP TABLE IF EXISTS {table}")
    for statement in _SCHEMA.split(";"):
        connection.execute(statement)
    connection.execute("INSERT INTO state VALUES (?, 0, 0, 0)", (secrets.token_hex(8),))
    connection.execute(f"PRAGMA application_id = {_APPLICATION_ID}")
    connection.execute(f"PRAGMA user_version = {_SCHEMA_VERSION}")
